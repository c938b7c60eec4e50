#include "SocketProvider.h"

#include <poll.h>

#include <algorithm>

#include <dmf/ADMDuplexDataChannelBase.h>

namespace dmf::socket {

namespace {
constexpr std::uint32_t kPacketSize = 64 * 1024;
constexpr double kConnectLimit = 15;
/// How much may lie in wait for the client before the device is made to wait.
constexpr std::uint64_t kReadAheadLimit = 16 * 1024 * 1024;
constexpr std::chrono::milliseconds kBacklogInterval{5};
/// So many requests in a row are served without the worker. A client who makes the next request whenever he is told
/// that the last one ended would otherwise never come back to his run loop.
constexpr int kServedOnTheSpotLimit = 64;
/// So many blocks of one direction are moved before the other has its turn.
constexpr int kBlocksInARow = 16;
} // namespace

SocketProvider::SocketProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                               std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device,
                               double connectTimeout)
    : ADMConnectionProvider(parent, std::move(info), std::move(device)), connectTimeout_(connectTimeout)
{
}

bool SocketProvider::isOpen()
{
    std::lock_guard held(lock());
    return connection_ != nullptr;
}

ADMConnectionProvider::Status SocketProvider::performOpen()
{
    const auto network = std::dynamic_pointer_cast<NetworkDevice>(device());
    if (!network)
        return ProviderStatus::invalidParameter;
    if (!wake_)
        wake_ = Signal(); // the program was short of descriptors; no worker runs yet that could look at it
    if (!wake_)
        return ProviderStatus::failed;
    const std::chrono::duration<double> limit(std::clamp(connectTimeout_, 0.0, kConnectLimit));
    // The channel's own flag, not the delegate: it asks about transfers, and the lock is held here.
    const auto isCancelled = [this] {
        const auto channel = parent();
        return !channel || channel->shouldClose();
    };
    auto connected = network->connect(Clock::now() + std::chrono::duration_cast<Clock::duration>(limit), isCancelled);
    switch (connected.outcome) {
    case Outcome::refused: return ProviderStatus::failed;
    case Outcome::timedOut: return ProviderStatus::timedOut;
    case Outcome::cancelled: return ProviderStatus::cancelled;
    case Outcome::done: break;
    }
    connection_ = std::make_shared<Connection>(std::move(connected.socket));
    use_ = network->beginUse();
    setMaxPacketSizes(kPacketSize, kPacketSize);
    return ProviderStatus::success;
}

ADMConnectionProvider::Status SocketProvider::performClose()
{
    connection_->end();
    connection_ = nullptr; // whoever still works on it lets go of it soon
    use_ = nullptr;
    return ProviderStatus::success;
}

void SocketProvider::signalForStop()
{
    ADMConnectionProvider::signalForStop();
    wake_.set();
}

bool SocketProvider::shouldCancel(Direction direction)
{
    return direction == Direction::read ? shouldCancelRead() : shouldCancelWrite();
}

/// Moves what can be moved now, without waiting. Gives the status with which the transfer has ended, or nothing while
/// it is to go on: either it has come further, or it cannot for now.
std::optional<ADMConnectionProvider::Status> SocketProvider::advance(ADMTransferTicket& ticket, Direction direction,
                                                                     Connection& connection)
{
    const bool reads = direction == Direction::read;
    // One of any length that somebody waits for ends with the first bytes; one that is told block by block never does.
    const bool endsWhole = !reads || ticket.wantsWholeLength();
    std::uint32_t count = 0;
    switch (reads ? connection.receive(ticket.space(), count) : connection.send(ticket.bytes(), count)) {
    case Connection::Result::moved:
        ticket.advance(count);
        if (endsWhole ? ticket.isComplete() : ticket.isSynchronous())
            return ProviderStatus::success;
        break;
    case Connection::Result::wouldBlock: break;
    case Connection::Result::peerEnded: return ProviderStatus::peerEnded;
    case Connection::Result::broken: return connection.isEnded() ? ProviderStatus::notOpen : ProviderStatus::failed;
    }
    // Bytes that are there at the last moment still count, so the time is looked at afterwards.
    if (const auto deadline = ticket.deadline(); deadline && Clock::now() >= *deadline)
        return ProviderStatus::timedOut;
    return std::nullopt;
}

/// The status of a transfer that the client gives up, or whose channel is being closed.
ADMConnectionProvider::Status SocketProvider::cancelledStatus() const
{
    const auto channel = parent();
    return channel && !channel->shouldClose() ? ProviderStatus::cancelled : ProviderStatus::notOpen;
}

// On the caller's thread

std::shared_ptr<Connection> SocketProvider::connectionFor(const ADMTransferTicket& ticket)
{
    std::lock_guard held(lock());
    return isPending(ticket) ? connection_ : nullptr;
}

ADMConnectionProvider::Status SocketProvider::performRead(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::read);
}

ADMConnectionProvider::Status SocketProvider::performWrite(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::write);
}

ADMConnectionProvider::Status SocketProvider::perform(ADMTransferTicket& ticket, Direction direction)
{
    const auto connection = connectionFor(ticket);
    if (!connection)
        return ProviderStatus::notOpen;
    auto askAgain = ticket.startTime() + kCancelInterval;
    while (true) {
        if (const auto status = advance(ticket, direction, *connection))
            return *status;
        if (Clock::now() >= askAgain) {
            if (shouldCancel(direction))
                return cancelledStatus();
            askAgain = Clock::now() + kCancelInterval;
        }
        const auto deadline = ticket.deadline();
        connection->wait(direction == Direction::read ? POLLIN : POLLOUT,
                         deadline ? std::min(*deadline, askAgain) : askAgain);
    }
}

// On the worker

void SocketProvider::requestArrived(ADMTransferTicket& ticket)
{
    const auto direction = &ticket == readTicket() ? Direction::read : Direction::write;
    if (servedOnTheSpot_ < kServedOnTheSpotLimit) {
        ++servedOnTheSpot_;
        serve(direction);
    }
    if (ticketOf(direction))
        wake_.set();
}

std::uintptr_t SocketProvider::run()
{
    signalReady();
    Lock held(lock());
    askAgain_ = Clock::now() + kCancelInterval;
    while (!isStopRequested() && connection_) {
        servedOnTheSpot_ = 0;
        serveAll();
        letOthersIn(held); // while the device sends without end the wait below is over at once
        const bool readsAhead = mayReadAhead();
        const auto connection = connection_;
        if (isStopRequested() || !connection)
            break;
        const auto* const read = readTicket();
        const auto* const write = writeTicket();
        std::optional<Clock::time_point> until;
        const auto noLaterThan = [&until](Clock::time_point then) { until = until ? std::min(*until, then) : then; };
        const bool reads = read && readsAhead;
        for (const auto* const ticket : {read, write})
            if (ticket) {
                noLaterThan(askAgain_);
                if (const auto deadline = ticket->deadline())
                    noLaterThan(*deadline);
            }
        if (read && !reads)
            noLaterThan(Clock::now() + kBacklogInterval);

        held.unlock();
        connection->wait(static_cast<short>((reads ? POLLIN : 0) | (write ? POLLOUT : 0)), until, &wake_);
        held.lock();
        wake_.clear();
        askWhetherToCancel(held);
    }
    return 0;
}

/// The channel may go in the middle of it, and with it the connection and the tickets.
bool SocketProvider::mayReadAhead() const
{
    const auto channel = parent();
    return !channel || channel->undeliveredBytes() < kReadAheadLimit;
}

void SocketProvider::serveAll()
{
    serve(Direction::read);
    if (!isStopRequested()) // telling of the read may have let go of the channel
        serve(Direction::write);
}

/// Moves what can be moved now and tells of it. With the lock held.
void SocketProvider::serve(Direction direction)
{
    for (int blocks = 0; blocks < kBlocksInARow; ++blocks) {
        const bool hasRoom = direction == Direction::write || mayReadAhead();
        const auto connection = connection_;
        auto* const ticket = ticketOf(direction);
        if (!connection || !ticket)
            return;
        if (!hasRoom && !ticket->isSynchronous()) {
            if (const auto deadline = ticket->deadline(); deadline && Clock::now() >= *deadline)
                notifyParentOnTicket(ticket, ProviderStatus::timedOut);
            return;
        }
        const auto before = ticket->processed();
        const auto status = advance(*ticket, direction, *connection);
        const bool hasMoved = ticket->processed() != before;
        if (status || (hasMoved && !ticket->isSynchronous()))
            notifyParentOnTicket(ticket, status.value_or(ProviderStatus::success));
        if (status.value_or(ProviderStatus::success) != ProviderStatus::success || !hasMoved)
            return;
    }
}

/// Asks the client about what is pending, at intervals. The lock is let go for it, so the request that the answer is
/// for is known by its time.
void SocketProvider::askWhetherToCancel(Lock& held)
{
    if (Clock::now() < askAgain_)
        return;
    for (const auto direction : {Direction::read, Direction::write}) {
        const auto* const asked = ticketOf(direction);
        if (!asked)
            continue;
        const auto askedFor = asked->startTime();
        held.unlock();
        const bool isUnwanted = shouldCancel(direction);
        const auto status = cancelledStatus(); // like the question, it may be what lets go of the channel
        held.lock();
        auto* const ticket = ticketOf(direction);
        if (isUnwanted && !isStopRequested() && ticket && ticket->startTime() == askedFor)
            notifyParentOnTicket(ticket, status);
    }
    askAgain_ = Clock::now() + kCancelInterval;
}

} // namespace dmf::socket
