#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>

#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/TransportProvider.h>

#include "Line.h"
#include "SimulatedDevice.h"

namespace dmf::simulated {

/// A channel to a simulated device; every channel name will do.
class SimulatedChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
};

/// A line in memory, with the device's memory of what was written to it.
class SimulatedConnection final : public TransportConnection {
public:
    explicit SimulatedConnection(std::shared_ptr<SimulatedDevice> device);

    [[nodiscard]] Progress read(std::span<std::uint8_t> space) override;
    [[nodiscard]] Progress write(std::span<const std::uint8_t> bytes) override;
    void wait(const Wait& wait) override;
    void wake() noexcept override;

protected:
    void disconnect() noexcept override;

private:
    const std::shared_ptr<SimulatedDevice> device_;
    std::mutex lock_;
    std::condition_variable changed_;
    Line line_;            // guarded by lock_
    bool isWoken_ = false; // guarded by lock_
};

/// Opens lines as the device's script says.
class SimulatedProvider final : public TransportProvider {
public:
    using TransportProvider::TransportProvider;

protected:
    Status connect(std::shared_ptr<TransportConnection>& connection) override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-simulated"; }
};

} // namespace dmf::simulated
