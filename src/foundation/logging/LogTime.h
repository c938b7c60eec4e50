#pragma once

#include <cstddef>

namespace dmf::internal {

/// How long the text of a point in time is: "20261122T20:15:00.123".
inline constexpr std::size_t kLogTimeLength = 21;

/// Writes the present local time to `text`, which has room for kLogTimeLength characters. A changed time zone (TZ, or
/// the machine's own zone) is followed from the next second on. Thread-safe.
void writeLogTime(char* text) noexcept;

} // namespace dmf::internal
