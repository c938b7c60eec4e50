#include "SimulatedChannel.h"

#include <algorithm>

#include <dmf/ADMServiceInfo.h>

namespace dmf::simulated {

namespace {
constexpr Milliseconds kCancelInterval{90};
/// So many packets of one direction are moved before others have their turn, whoever waits for the lock included.
constexpr int kPacketsInARow = 64;
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

SimulatedProvider::SimulatedProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                                     std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device)
    : ADMConnectionProvider(parent, std::move(info), device),
      simulated_(std::dynamic_pointer_cast<SimulatedDevice>(device))
{
}

bool SimulatedProvider::isOpen()
{
    std::lock_guard held(lock());
    return line_ != nullptr;
}

ADMConnectionProvider::Status SimulatedProvider::performOpen()
{
    if (!simulated_)
        return ProviderStatus::invalidParameter;
    const auto& script = simulated_->script();
    // The lock is held while a channel is being opened, so the time passes under a lock of its own.
    std::mutex lock;
    std::condition_variable never;
    std::unique_lock held(lock);
    const auto until = Clock::now() + script.openDelay;
    while (Clock::now() < until) {
        never.wait_until(held, std::min(until, Clock::now() + kCancelInterval));
        if (const auto channel = parent(); !channel || channel->shouldClose())
            return ProviderStatus::cancelled;
    }
    if (script.openStatus != ProviderStatus::success)
        return script.openStatus;
    line_ = std::make_unique<Line>(script);
    ++openings_;
    setMaxPacketSizes(script.packetSize, script.packetSize);
    return ProviderStatus::success;
}

ADMConnectionProvider::Status SimulatedProvider::performClose()
{
    line_ = nullptr;
    changes_.notify();
    return ProviderStatus::success;
}

void SimulatedProvider::signalForStop()
{
    ADMConnectionProvider::signalForStop();
    changes_.notify();
}

void SimulatedProvider::requestArrived(ADMTransferTicket&)
{
    changes_.notify();
}

ADMTransferTicket* SimulatedProvider::pending(Direction direction) noexcept
{
    return direction == Direction::read ? readTicket() : writeTicket();
}

bool SimulatedProvider::shouldCancel(Direction direction)
{
    return direction == Direction::read ? shouldCancelRead() : shouldCancelWrite();
}

ADMConnectionProvider::Status SimulatedProvider::cancelledStatus() const
{
    const auto channel = parent();
    return channel && !channel->shouldClose() ? ProviderStatus::cancelled : ProviderStatus::notOpen;
}

/// Moves what can be moved now; gives the status with which the transfer has ended, or nothing. With the lock held.
std::optional<ADMConnectionProvider::Status> SimulatedProvider::advance(ADMTransferTicket& ticket, Direction direction)
{
    if (!line_)
        return ProviderStatus::notOpen;
    const auto& script = simulated_->script();
    const bool reads = direction == Direction::read;
    // One of any length that somebody waits for ends with the first bytes; one that is told block by block never does.
    const bool endsWhole = !reads || ticket.wantsWholeLength();
    if (const Status scripted = reads ? script.readStatus : script.writeStatus; scripted != ProviderStatus::success)
        return scripted;
    std::uint32_t count = 0;
    switch (reads ? line_->read(ticket.space(), count) : line_->write(ticket.bytes(), count)) {
    case Line::Result::moved:
        if (!reads)
            simulated_->keepWritten(ticket.bytes().first(count));
        ticket.advance(count);
        if (!reads && ticket.isComplete()) {
            line_->endRequest();
            changes_.notify(); // a read may be waiting for the answer
        }
        if (endsWhole ? ticket.isComplete() : ticket.isSynchronous())
            return ProviderStatus::success;
        break;
    case Line::Result::nothingYet: break;
    case Line::Result::peerEnded: return ProviderStatus::peerEnded;
    case Line::Result::broken: return ProviderStatus::failed;
    }
    if (const auto deadline = ticket.deadline(); deadline && Clock::now() >= *deadline)
        return ProviderStatus::timedOut;
    return std::nullopt;
}

/// When a transfer that cannot go on now is to be looked at again.
Clock::time_point SimulatedProvider::nextLook(const ADMTransferTicket& ticket, Direction direction) const
{
    auto then = Clock::now() + kCancelInterval;
    if (const auto deadline = ticket.deadline())
        then = std::min(then, *deadline);
    if (const auto change = direction == Direction::read ? line_->nextRead() : line_->nextWrite())
        then = std::min(then, *change);
    return then;
}

ADMConnectionProvider::Status SimulatedProvider::performRead(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::read);
}

ADMConnectionProvider::Status SimulatedProvider::performWrite(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::write);
}

ADMConnectionProvider::Status SimulatedProvider::perform(ADMTransferTicket& ticket, Direction direction)
{
    Lock held(lock());
    if (!isPending(ticket))
        return ProviderStatus::notOpen;
    const auto opening = openings_;
    auto askAgain = ticket.startTime() + kCancelInterval;
    for (int packets = 0;; ++packets) {
        if (opening != openings_)
            return ProviderStatus::notOpen; // closed and opened again meanwhile
        const auto seen = changes_.count();
        const auto before = ticket.processed();
        if (const auto status = advance(ticket, direction))
            return *status;
        if (Clock::now() >= askAgain) {
            held.unlock();
            const bool isUnwanted = shouldCancel(direction);
            held.lock();
            if (isUnwanted)
                return cancelledStatus();
            askAgain = Clock::now() + kCancelInterval;
        }
        if (!line_)
            continue;
        if (ticket.processed() != before) {
            if (packets % kPacketsInARow == 0)
                letOthersIn(held);
            continue;
        }
        const auto then = std::min(askAgain, nextLook(ticket, direction));
        held.unlock();
        changes_.waitUntil(seen, then);
        held.lock();
    }
}

std::uintptr_t SimulatedProvider::run()
{
    signalReady();
    Lock held(lock());
    auto askAgain = Clock::now() + kCancelInterval;
    while (true) {
        const auto seen = changes_.count();
        serve(Direction::read);
        serve(Direction::write);
        letOthersIn(held);
        if (isStopRequested() || !line_)
            break;
        std::optional<Clock::time_point> then;
        for (const auto direction : {Direction::read, Direction::write})
            if (const auto* const ticket = pending(direction))
                then = std::min({then.value_or(askAgain), askAgain, nextLook(*ticket, direction)});
        held.unlock();
        changes_.waitUntil(seen, then);
        held.lock();
        if (Clock::now() >= askAgain) {
            askWhetherToCancel(held, Direction::read);
            askWhetherToCancel(held, Direction::write);
            askAgain = Clock::now() + kCancelInterval;
        }
    }
    return 0;
}

/// Asks the client about a pending request. The lock is let go for it, so the request that the answer is for is known
/// by its time.
void SimulatedProvider::askWhetherToCancel(Lock& held, Direction direction)
{
    if (!pending(direction))
        return;
    const auto asked = pending(direction)->startTime();
    held.unlock();
    const bool isUnwanted = shouldCancel(direction);
    const auto status = cancelledStatus(); // like the question, it may be what lets go of the channel
    held.lock();
    auto* const ticket = pending(direction);
    if (isUnwanted && !isStopRequested() && ticket && ticket->startTime() == asked)
        notifyParentOnTicket(ticket, status);
}

/// Moves what can be moved now and tells of it. With the lock held.
void SimulatedProvider::serve(Direction direction)
{
    for (int packets = 0; packets < kPacketsInARow; ++packets) {
        auto* const ticket = isStopRequested() ? nullptr : pending(direction);
        if (!ticket)
            return;
        const auto before = ticket->processed();
        const auto status = advance(*ticket, direction);
        const bool hasMoved = ticket->processed() != before;
        if (status || (hasMoved && !ticket->isSynchronous()))
            notifyParentOnTicket(ticket, status.value_or(ProviderStatus::success));
        if (status.value_or(ProviderStatus::success) != ProviderStatus::success || !hasMoved)
            return;
    }
}

} // namespace dmf::simulated
