#include <exception>
#include <utility>

#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Class.h>

#include "SimulatedProvider.h"

namespace dmf::simulated {
namespace {
class SimulatedServiceDiscovery final : public ADMServiceDiscoveryBase {
public:
    SimulatedServiceDiscovery(std::string serviceName, std::string connectionType, Dictionary parameters)
        : ADMServiceDiscoveryBase(std::move(serviceName), std::move(connectionType), std::move(parameters))
    {
    }

    [[nodiscard]] static std::shared_ptr<IDMServiceDiscovery>
    initWithServiceName(std::string serviceName, std::string connectionType, Dictionary parameters)
    {
        const auto made = std::make_shared<SimulatedServiceDiscovery>(std::move(serviceName), std::move(connectionType),
                                                                      std::move(parameters));
        const Simulation simulation = Simulation::fromParameters(made->parameters());
        made->trouble_ = simulation.trouble;
        try {
            made->setDiscovery(std::make_shared<SimulatedProvider>(made, simulation));
        } catch (const std::exception&) {
            return nullptr; // no discovery thread
        }
        return made;
    }

    [[nodiscard]] Dictionary lastError() const override
    {
        if (trouble_.empty())
            return {};
        return {{std::string(kDMErrorDescription), trouble_}, {std::string(kDMErrorCode), -1}};
    }

private:
    std::string trouble_;
};
} // namespace
} // namespace dmf::simulated

DMF_REGISTER_CLASS(DMFSimulatedServiceDiscovery)
{
    described.implements<IDMServiceDiscovery>(&dmf::simulated::SimulatedServiceDiscovery::initWithServiceName);
}
