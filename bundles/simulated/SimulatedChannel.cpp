#include "SimulatedChannel.h"

#include <algorithm>

#include <dmf/ADMServiceInfo.h>

namespace dmf::simulated {

namespace {
constexpr Milliseconds kCancelInterval{90};

std::int16_t statusOf(Line::Result result)
{
    switch (result) {
    case Line::Result::moved:
    case Line::Result::nothingYet: return ProviderStatus::success;
    case Line::Result::peerEnded: return ProviderStatus::peerEnded;
    case Line::Result::broken: break;
    }
    return ProviderStatus::failed;
}
} // namespace

std::int16_t SimulatedChannel::createAndOpenProviderWithTimeout(double)
{
    const auto made =
        ADMConnectionProvider::initWithParent<SimulatedProvider>(shared_from_this(), nullptr, serviceInfo()->device());
    if (!made)
        return ProviderStatus::invalidParameter;
    setProvider(made);
    return made->open();
}

ADMConnectionProvider::Status SimulatedProvider::connect(std::shared_ptr<TransportConnection>& connection)
{
    const auto simulated = std::dynamic_pointer_cast<SimulatedDevice>(device());
    if (!simulated)
        return ProviderStatus::invalidParameter;
    const auto& script = simulated->script();
    // The lock is held while a channel is being opened, so the time passes under a lock of its own.
    std::mutex lock;
    std::condition_variable never;
    std::unique_lock held(lock);
    const auto until = Clock::now() + script.openDelay;
    while (Clock::now() < until) {
        never.wait_until(held, std::min(until, Clock::now() + kCancelInterval));
        if (isGivenUp())
            return ProviderStatus::cancelled;
    }
    if (script.openStatus != ProviderStatus::success)
        return script.openStatus;
    connection = std::make_shared<SimulatedConnection>(simulated);
    setMaxPacketSizes(script.packetSize, script.packetSize);
    return ProviderStatus::success;
}

SimulatedConnection::SimulatedConnection(std::shared_ptr<SimulatedDevice> device)
    : device_(std::move(device)), line_(device_->script())
{
}

TransportConnection::Progress SimulatedConnection::read(std::span<std::uint8_t> space)
{
    if (const auto scripted = device_->script().readStatus; scripted != ProviderStatus::success)
        return {0, scripted};
    std::lock_guard held(lock_);
    Progress progress;
    progress.status = statusOf(line_.read(space, progress.count));
    return progress;
}

TransportConnection::Progress SimulatedConnection::write(std::span<const std::uint8_t> bytes)
{
    if (const auto scripted = device_->script().writeStatus; scripted != ProviderStatus::success)
        return {0, scripted};
    std::lock_guard held(lock_);
    Progress progress;
    progress.status = statusOf(line_.write(bytes, progress.count));
    device_->keepWritten(bytes.first(progress.count));
    if (progress.count == bytes.size())
        line_.endRequest();
    changed_.notify_all(); // a read may be waiting for the answer, or for the end of the line
    return progress;
}

void SimulatedConnection::wait(const Wait& wait)
{
    std::unique_lock held(lock_);
    while (!isEnded() && !(wait.waking && isWoken_)) {
        auto then = wait.until;
        const auto noLaterThan = [&then](std::optional<Clock::time_point> it) {
            if (it)
                then = std::min(then.value_or(*it), *it);
        };
        if (wait.reading)
            noLaterThan(line_.nextRead());
        if (wait.writing)
            noLaterThan(line_.nextWrite());
        if (then && *then <= Clock::now())
            break;
        then ? (void)changed_.wait_until(held, *then) : changed_.wait(held);
    }
    if (wait.waking)
        isWoken_ = false;
}

void SimulatedConnection::wake() noexcept
{
    std::lock_guard held(lock_);
    isWoken_ = true;
    changed_.notify_all();
}

void SimulatedConnection::disconnect() noexcept
{
    std::lock_guard held(lock_);
    changed_.notify_all();
}

} // namespace dmf::simulated
