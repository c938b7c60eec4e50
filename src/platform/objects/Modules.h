#pragma once

#include <string>

namespace dmf::internal {

/// The shared object that holds an address: where it begins in memory, which tells it from all others, and its file.
struct Module {
    const void* base = nullptr;
    std::string file;
};

/// An empty base for an address in no shared object. Thread-safe.
[[nodiscard]] Module moduleOf(const void* address);

/// Loads the shared object at `path` for good, all of its symbols resolved and none of them offered to others. An empty
/// base, with the loader's message in `refusal`, when it does not load. Thread-safe.
[[nodiscard]] Module loadModule(const std::string& path, std::string& refusal);

} // namespace dmf::internal
