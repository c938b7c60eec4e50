#pragma once

#include <memory>
#include <mutex>
#include <span>

#include <dmf/IDMDevice.h>

#include "Script.h"

namespace dmf::simulated {

/// A device made of the pairs of its URI. Thread-safe.
class SimulatedDevice final : public IDMDevice {
public:
    /// Searches as long as the script says; empty when the script hides the device or `handler` cancels.
    [[nodiscard]] static std::shared_ptr<IDMDevice> initFromInfo(const Dictionary& spec,
                                                                 const std::shared_ptr<IDMDeviceHandler>& handler);
    SimulatedDevice(const Dictionary& spec, Script script);

    [[nodiscard]] bool isReachable() override { return script_.isReachable; }
    /// Who the URI says that the device is. When asked for "written", "params" holds under that key the bytes that all
    /// channels have written to the device, the first 16 MB of them.
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary& parameters,
                                                std::shared_ptr<IDMDeviceHandler> handler) override;

    [[nodiscard]] const Script& script() const noexcept { return script_; }
    void keepWritten(std::span<const std::uint8_t> bytes);

private:
    const Script script_;
    const Dictionary spec_;
    std::mutex lock_;
    Data written_; // guarded by lock_
};

} // namespace dmf::simulated
