#pragma once

#include <string>
#include <string_view>

namespace dmf::internal {

/// The shared object that holds an address: where it begins in memory, which tells it from all others, and its file.
struct Module {
    const void* base = nullptr;
    std::string file;
};

/// An empty base for an address in no shared object. Thread-safe.
[[nodiscard]] Module moduleOf(const void* address);

/// The folder that this library's file lies in, without links, wherever the process has gone since. Thread-safe.
[[nodiscard]] const std::string& ownFolder();

/// Loads the shared object at `path` for good, all of its symbols resolved and none of them offered to others. An empty
/// base, with the loader's message in `refusal`, when it does not load. Thread-safe.
///
/// What the object's own code throws as it comes in cannot be let through: the loader would keep its lock for ever, and
/// the next thread that loads anything would hang. It ends the program, with a line in the system's log that names
/// `owner`.
[[nodiscard]] Module loadModule(const std::string& path, const std::string& owner, std::string& refusal);

/// Notes that the shared object at `base` could not announce a class as it came in. Thread-safe.
void noteModuleFault(const void* base, std::string_view reason);
/// What was noted of the shared object; empty when nothing was. Thread-safe.
[[nodiscard]] std::string moduleFault(const void* base);

} // namespace dmf::internal
