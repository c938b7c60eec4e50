#pragma once

#include <memory>
#include <string>

#include <dmf/ADMThreadedServiceResolver.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>

/// Resolves services of every connection type for which no other class is registered: has the service's device located
/// and asks it who it is. As the device's handler it cancels the device's work once nobody waits for it any more.
class DMF_EXPORT ADMGenericServiceResolver final : public ADMThreadedServiceResolver, public IDMDeviceHandler {
public:
    /// The empty string: the key of the resolver for all types.
    [[nodiscard]] static std::string connectionType();
    /// The class as the shared factory knows it.
    [[nodiscard]] static std::shared_ptr<const dmf::Class> resolverClass();

    void findService() override;
    [[nodiscard]] bool isCanceledForDevice(const IDMDevice* device) override;
};
