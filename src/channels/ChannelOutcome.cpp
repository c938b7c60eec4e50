#include "channels/ChannelOutcome.h"

#include <string>

#include <dmf/ADMTransferTicket.h>
#include <dmf/DMKeys.h>
#include <dmf/ProviderStatus.h>

namespace dmf::internal {

bool isValidTimeout(double seconds) noexcept
{
    return !(seconds < 0);
}

std::uint32_t microseconds(double seconds) noexcept
{
    // 1800 seconds would still fit, but from there on clients mean "as long as it takes".
    return seconds < 1800 ? static_cast<std::uint32_t>(seconds * 1'000'000) : kNoTimeout;
}

ChannelError channelErrorOf(std::int16_t status) noexcept
{
    switch (status) {
    case ProviderStatus::success: return ChannelError::none;
    case ProviderStatus::timedOut: return ChannelError::timedOut;
    case ProviderStatus::invalidParameter: return ChannelError::invalidArgument;
    case ProviderStatus::notOpen: return ChannelError::notOpen;
    case ProviderStatus::busy: return ChannelError::busy;
    case ProviderStatus::peerEnded: return ChannelError::peerEnded;
    case ProviderStatus::cancelled: return ChannelError::cancelled;
    default: return ChannelError::failed;
    }
}

std::int16_t forgivingTimeout(std::int16_t status, std::uint32_t processed) noexcept
{
    return status == ProviderStatus::timedOut && processed > 0 ? ProviderStatus::success : status;
}

Dictionary errorRecord(ChannelError code, std::int32_t direction)
{
    return {{std::string(kDMErrorCode), static_cast<std::int32_t>(code)},
            {std::string(kDMDataChannelState), direction}};
}

bool report(ChannelError code, std::int32_t direction, Dictionary* error)
{
    if (code != ChannelError::none && error)
        *error = errorRecord(code, direction);
    return code == ChannelError::none;
}

bool report(std::int16_t status, std::int32_t direction, std::uint32_t processed, Dictionary* error)
{
    if (report(channelErrorOf(status), direction, error))
        return true;
    if (error)
        error->set(kDMDataChannelProcessedDataLength, processed);
    return false;
}

} // namespace dmf::internal
