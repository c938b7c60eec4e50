#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dmf::internal {

/// The configured level word, or nothing; see ADMLogger::environmentLogLevel. Thread-safe.
[[nodiscard]] std::optional<std::string> configuredLevel();

/// The rank of the configured level; ADMLogger::kUnknownLevel when there is none. Answers exactly as `configuredLevel`
/// does, in a few nanoseconds while the word is young. Thread-safe, without waiting for other threads then.
[[nodiscard]] std::int32_t configuredLevelRank();

} // namespace dmf::internal
