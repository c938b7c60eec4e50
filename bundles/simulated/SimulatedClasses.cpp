#include <dmf/ADMIOProvider.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/Class.h>

#include "SimulatedChannel.h"
#include "SimulatedDevice.h"

namespace {
/// Supplies the simulated classes to services under the scheme "simulated".
class SimulatedIOProvider final : public ADMIOProvider {
public:
    [[nodiscard]] std::shared_ptr<const dmf::Class>
    implementorClassForProtocolWithName(std::string_view name) const override
    {
        if (name == IDMDevice::protocol().name())
            return dmf::ClassRegistry::shared().classNamed("DMFSimulatedDevice");
        if (name == ADMDuplexDataChannel::protocol().name())
            return dmf::ClassRegistry::shared().classNamed("DMFSimulatedChannel");
        return nullptr;
    }
};
} // namespace

DMF_REGISTER_CLASS(DMFSimulatedIOProvider)
{
    described.implements<ADMIOProvider>([] { return std::make_shared<SimulatedIOProvider>(); });
}

DMF_REGISTER_CLASS(DMFSimulatedDevice)
{
    described.implements<IDMDevice>(&dmf::simulated::SimulatedDevice::initFromInfo);
}

DMF_REGISTER_CLASS(DMFSimulatedChannel)
{
    described.implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name) {
        return ADMDuplexDataChannelBase::initWithServiceInfo<dmf::simulated::SimulatedChannel>(std::move(serviceInfo),
                                                                                               std::move(name));
    });
}
