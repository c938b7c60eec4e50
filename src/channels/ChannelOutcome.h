#pragma once

#include <cstdint>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/platform/Value.h>

/// What a channel makes of time-outs and of its provider's statuses. `direction` is 1 for a read, 2 for a write.
namespace dmf::internal {

/// Seconds as clients give them: only negative ones make no sense, NaN is none.
[[nodiscard]] bool isValidTimeout(double seconds) noexcept;
/// The same as the provider takes them.
[[nodiscard]] std::uint32_t microseconds(double seconds) noexcept;

[[nodiscard]] ChannelError channelErrorOf(std::int16_t status) noexcept;
/// Bytes that did arrive before the time ran out are a success for those who asked for any length.
[[nodiscard]] std::int16_t forgivingTimeout(std::int16_t status, std::uint32_t processed) noexcept;

/// What a client is told of a failure.
[[nodiscard]] Dictionary errorRecord(ChannelError code, std::int32_t direction);
/// Stores the record of a request that was refused before anything moved; true when it was not.
bool report(ChannelError code, std::int32_t direction, Dictionary* error);
/// The same for a transfer that came to its end.
bool report(std::int16_t status, std::int32_t direction, std::uint32_t processed, Dictionary* error);

} // namespace dmf::internal
