#pragma once

#include <dmf/DeviceList.h>

namespace dmf::internal {

/// What a service says of its device without asking it. Blocks never.
struct DeviceFacts {
    DeviceWay way;
    std::string vendor, model;
    std::string serialNumber; ///< as the service writes it; empty where it has none, or one that tells nothing
};

/// Exported for the tests.
[[nodiscard]] DMF_EXPORT DeviceFacts factsOf(const std::shared_ptr<ADMServiceInfo>& service);

} // namespace dmf::internal
