#pragma once

#include <string>

#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>

namespace dmf::internal {

/// The one error of settings: stores it, where somebody wants it, and gives false.
inline bool refuseSetting(Error* error)
{
    if (error)
        *error = Error(std::string(kDMDeviceSettingsDomain), -1001);
    return false;
}

} // namespace dmf::internal
