#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include <dmf/ADMDiscoveryProvider.h>
#include <dmf/platform/RunLoop.h>

#include "Announcements.h"

namespace dmf::simulated {

/// Announces services by a script, from a timer on the discovery thread.
class SimulatedProvider final : public ADMDiscoveryProvider {
public:
    /// Status of a start without the simulated device, whose services these are.
    static constexpr Status kNoDevice = 2;
    /// Status of a start without a discovery thread.
    static constexpr Status kNoThread = 3;

    SimulatedProvider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent, const Simulation& simulation);
    ~SimulatedProvider() override;

    [[nodiscard]] Status startDiscovery(std::string_view serviceName, std::optional<std::string_view> scope) override;
    Status stopDiscovery() override;

private:
    const Simulation simulation_;
    std::mutex lock_;
    std::shared_ptr<RunLoopTimer> timer_; // guarded by lock_
};

} // namespace dmf::simulated
