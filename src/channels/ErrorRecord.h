#pragma once

#include <string>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {

/// What a client is told of a failure; `direction` is 1 for a read, 2 for a write.
inline Dictionary errorRecord(ChannelError code, std::int32_t direction)
{
    return {{std::string(kDMErrorCode), static_cast<std::int32_t>(code)},
            {std::string(kDMDataChannelState), direction}};
}

} // namespace dmf::internal
