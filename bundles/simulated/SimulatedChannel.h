#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include <dmf/ADMConnectionProvider.h>
#include <dmf/ADMDuplexDataChannelBase.h>

#include "Line.h"
#include "SimulatedDevice.h"

namespace dmf::simulated {

/// Lets threads wait until something has changed since they last looked. Thread-safe.
class Changes {
public:
    void notify()
    {
        std::lock_guard held(lock_);
        ++count_;
        changed_.notify_all();
    }
    [[nodiscard]] std::uint64_t count() const
    {
        std::lock_guard held(lock_);
        return count_;
    }
    /// Returns once `count` is no longer `seen`, or at the time given.
    void waitUntil(std::uint64_t seen, std::optional<Clock::time_point> time) const
    {
        std::unique_lock held(lock_);
        const auto hasChanged = [&] { return count_ != seen; };
        if (time)
            changed_.wait_until(held, *time, hasChanged);
        else
            changed_.wait(held, hasChanged);
    }

private:
    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    std::uint64_t count_ = 0; // guarded by lock_
};

/// A channel to a simulated device; every channel name will do.
class SimulatedChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
};

/// Moves a channel's bytes over a line in memory.
class SimulatedProvider final : public ADMConnectionProvider {
public:
    SimulatedProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                      std::shared_ptr<IDMDevice> device);

    [[nodiscard]] bool isOpen() override;
    void signalForStop() override;

protected:
    Status performOpen() override;
    Status performClose() override;
    Status performRead(ADMTransferTicket& ticket) override;
    Status performWrite(ADMTransferTicket& ticket) override;
    void requestArrived(ADMTransferTicket& ticket) override;
    std::uintptr_t run() override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-simulated"; }

private:
    enum class Direction { read, write };

    Status perform(ADMTransferTicket& ticket, Direction direction);
    [[nodiscard]] std::optional<Status> advance(ADMTransferTicket& ticket, Direction direction);
    void serve(Direction direction);
    void askWhetherToCancel(Lock& held, Direction direction);
    [[nodiscard]] Clock::time_point nextLook(const ADMTransferTicket& ticket, Direction direction) const;
    [[nodiscard]] ADMTransferTicket* pending(Direction direction) noexcept;
    [[nodiscard]] bool shouldCancel(Direction direction);
    [[nodiscard]] Status cancelledStatus() const;

    const std::shared_ptr<SimulatedDevice> simulated_;
    Changes changes_;
    std::unique_ptr<Line> line_; // this and the following guarded by lock()
    std::uint64_t openings_ = 0;
};

} // namespace dmf::simulated
