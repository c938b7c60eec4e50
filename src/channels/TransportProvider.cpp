#include <dmf/TransportProvider.h>

#include <algorithm>
#include <utility>

#include <dmf/ADMDuplexDataChannelBase.h>

namespace dmf {

namespace {
/// How long a transfer may wait before the client is asked again whether he still wants it.
constexpr std::chrono::milliseconds kCancelInterval{90};
/// How much may lie in wait for the client before the device is made to wait.
constexpr std::uint64_t kReadAheadLimit = 16 * 1024 * 1024;
constexpr std::chrono::milliseconds kBacklogInterval{5};
/// So many requests in a row are served without the worker. A client who makes the next request whenever he is told
/// that the last one ended would otherwise never come back to his run loop.
constexpr int kServedOnTheSpotLimit = 64;
/// So many blocks of one direction are moved before the other has its turn.
constexpr int kBlocksInARow = 16;

std::int16_t statusOf(std::int16_t said, const TransportConnection& connection)
{
    return connection.isEnded() ? ProviderStatus::notOpen : said;
}

/// What ends a transfer that goes on as far as its bytes are concerned.
std::optional<std::int16_t> timedOut(const ADMTransferTicket& ticket)
{
    // Bytes that are there at the last moment still count, so the time is looked at after them.
    if (const auto deadline = ticket.deadline(); deadline && TransportConnection::Clock::now() >= *deadline)
        return ProviderStatus::timedOut;
    return std::nullopt;
}
} // namespace

TransportProvider::TransportProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                                     std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device)
    : ADMConnectionProvider(parent, std::move(info), std::move(device))
{
}

TransportProvider::~TransportProvider() = default;

std::shared_ptr<TransportConnection> TransportProvider::connection() const
{
    std::lock_guard guard(connectionLock_);
    return connection_;
}

void TransportProvider::setConnection(std::shared_ptr<TransportConnection> connection)
{
    std::lock_guard guard(connectionLock_);
    connection_.swap(connection);
}

bool TransportProvider::isOpen()
{
    return connection() != nullptr;
}

bool TransportProvider::isGivenUp() const
{
    const auto channel = parent();
    return !channel || channel->shouldClose();
}

ADMConnectionProvider::Status TransportProvider::performOpen()
{
    std::shared_ptr<TransportConnection> made;
    const Status status = connect(made);
    if (status != ProviderStatus::success)
        return status;
    if (!made)
        return ProviderStatus::failed;
    setConnection(std::move(made));
    lastWriteIsWhole_ = true;
    return ProviderStatus::success;
}

ADMConnectionProvider::Status TransportProvider::performClose()
{
    const auto ended = connection();
    setConnection(nullptr);                    // whoever still works on it lets go of it soon
    ended->end(lastWriteIsWhole_ && parent()); // a channel that is being destroyed was not closed
    return ProviderStatus::success;
}

void TransportProvider::signalForStop()
{
    ADMConnectionProvider::signalForStop();
    if (const auto current = connection())
        current->wake();
}

bool TransportProvider::shouldCancel(Direction direction)
{
    return direction == Direction::read ? shouldCancelRead() : shouldCancelWrite();
}

/// The status of a transfer that the client gives up, or whose channel is being closed.
ADMConnectionProvider::Status TransportProvider::cancelledStatus() const
{
    return isGivenUp() ? ProviderStatus::notOpen : ProviderStatus::cancelled;
}

/// What a write ends with that is to end by `status` with bytes left: the transport may have handed some of them over
/// already.
ADMConnectionProvider::Status TransportProvider::withdrawn(ADMTransferTicket& ticket, TransportConnection& connection,
                                                           Status status)
{
    if (ticket.isComplete())
        return status;
    ticket.advance(std::min(connection.withdrawWrite(), static_cast<std::uint32_t>(ticket.bytes().size())));
    return ticket.isComplete() ? ProviderStatus::success : status;
}

// Each moves what can be moved now, without waiting, and gives the status with which the transfer has ended, or nothing
// while it is to go on: either it has come further, or it cannot for now.

std::optional<ADMConnectionProvider::Status> TransportProvider::advanceRead(ADMTransferTicket& ticket,
                                                                            TransportConnection& connection)
{
    const auto moved = connection.read(ticket.space());
    ticket.advance(moved.count);
    if (moved.status != ProviderStatus::success)
        return statusOf(moved.status, connection);
    // One of any length that somebody waits for ends with the first bytes; one that is told block by block never does.
    const bool hasEnded = ticket.wantsWholeLength() ? ticket.isComplete() : ticket.isSynchronous();
    if (moved.count > 0 && hasEnded)
        return ProviderStatus::success;
    return timedOut(ticket);
}

std::optional<ADMConnectionProvider::Status> TransportProvider::advanceWrite(ADMTransferTicket& ticket,
                                                                             TransportConnection& connection)
{
    const auto moved = connection.write(ticket.bytes());
    ticket.advance(moved.count);
    if (moved.status != ProviderStatus::success)
        return withdrawn(ticket, connection, statusOf(moved.status, connection));
    if (ticket.isComplete())
        return ProviderStatus::success;
    const auto late = timedOut(ticket);
    return late ? std::optional(withdrawn(ticket, connection, *late)) : std::nullopt;
}

std::optional<ADMConnectionProvider::Status> TransportProvider::finish(ADMTransferTicket& ticket,
                                                                       TransportConnection& connection)
{
    if (const auto status = connection.finishWriting())
        return statusOf(*status, connection);
    return timedOut(ticket);
}

// On the caller's thread

ADMConnectionProvider::Status TransportProvider::performRead(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::read, &advanceRead);
}

ADMConnectionProvider::Status TransportProvider::performWrite(ADMTransferTicket& ticket)
{
    lastWriteIsWhole_ = false;
    const Status status = perform(ticket, Direction::write, &advanceWrite);
    lastWriteIsWhole_ = status == ProviderStatus::success;
    return status;
}

ADMConnectionProvider::Status TransportProvider::performFinishWriting(ADMTransferTicket& ticket)
{
    return perform(ticket, Direction::write, &finish);
}

ADMConnectionProvider::Status TransportProvider::perform(ADMTransferTicket& ticket, Direction direction,
                                                         Attempt attempt)
{
    std::shared_ptr<TransportConnection> own;
    {
        std::lock_guard held(lock());
        own = isPending(ticket) ? connection() : nullptr;
    }
    if (!own)
        return ProviderStatus::notOpen;
    auto askAgain = ticket.startTime() + kCancelInterval;
    while (true) {
        const auto before = ticket.processed();
        if (const auto status = attempt(ticket, *own))
            return *status;
        if (own->isEnded())
            return ProviderStatus::notOpen;
        if (Clock::now() >= askAgain) {
            if (shouldCancel(direction))
                return direction == Direction::write ? withdrawn(ticket, *own, cancelledStatus()) : cancelledStatus();
            askAgain = Clock::now() + kCancelInterval;
        }
        if (ticket.processed() != before)
            continue;
        const auto deadline = ticket.deadline();
        own->wait({.reading = direction == Direction::read,
                   .writing = direction == Direction::write,
                   .until = deadline ? std::min(*deadline, askAgain) : askAgain});
    }
}

// On the worker

ADMTransferTicket* TransportProvider::ticketOf(Direction direction) noexcept
{
    return direction == Direction::read ? readTicket() : writeTicket();
}

void TransportProvider::requestArrived(ADMTransferTicket& ticket)
{
    const auto direction = &ticket == readTicket() ? Direction::read : Direction::write;
    if (direction == Direction::write)
        lastWriteIsWhole_ = false;
    if (servedOnTheSpot_ < kServedOnTheSpotLimit) {
        ++servedOnTheSpot_;
        serve(direction);
    }
    if (const auto current = connection(); current && ticketOf(direction))
        current->wake();
}

std::uintptr_t TransportProvider::run()
{
    signalReady();
    Lock held(lock());
    askAgain_ = Clock::now() + kCancelInterval;
    while (!isStopRequested()) {
        servedOnTheSpot_ = 0;
        serve(Direction::read);
        if (!isStopRequested()) // telling of the read may have let go of the channel
            serve(Direction::write);
        letOthersIn(held); // while the device sends without end the wait below is over at once
        const auto current = connection();
        if (isStopRequested() || !current)
            break;
        sleep(held, *current);
        askWhetherToCancel(held);
    }
    return 0;
}

/// Until there is something to do. The channel may go in the middle of it, and with it the connection and the tickets.
void TransportProvider::sleep(Lock& held, TransportConnection& connection)
{
    const bool hasRoom = mayReadAhead();
    const auto* const read = readTicket();
    const auto* const write = writeTicket();
    TransportConnection::Wait wait{
        .reading = read && hasRoom, .writing = write != nullptr, .waking = true, .until = {}};
    const auto noLaterThan = [&wait](Clock::time_point then) {
        wait.until = std::min(wait.until.value_or(then), then);
    };
    for (const auto* const ticket : {read, write})
        if (ticket) {
            noLaterThan(askAgain_);
            if (const auto deadline = ticket->deadline())
                noLaterThan(*deadline);
        }
    if (read && !hasRoom)
        noLaterThan(Clock::now() + kBacklogInterval);
    held.unlock();
    connection.wait(wait);
    held.lock();
}

bool TransportProvider::mayReadAhead() const
{
    const auto channel = parent();
    return !channel || channel->undeliveredBytes() < kReadAheadLimit;
}

/// Moves what can be moved now and tells of it. With the lock held.
void TransportProvider::serve(Direction direction)
{
    for (int blocks = 0; blocks < kBlocksInARow; ++blocks) {
        const bool hasRoom = direction == Direction::write || mayReadAhead();
        const auto current = connection();
        auto* const ticket = ticketOf(direction);
        if (!current || !ticket)
            return;
        if (!hasRoom && !ticket->isSynchronous()) {
            if (const auto late = timedOut(*ticket))
                notifyParentOnTicket(ticket, *late);
            return;
        }
        if (direction == Direction::write)
            lastWriteIsWhole_ = false;
        const auto before = ticket->processed();
        const auto status =
            direction == Direction::read ? advanceRead(*ticket, *current) : advanceWrite(*ticket, *current);
        const bool hasMoved = ticket->processed() != before;
        if (direction == Direction::write && status == ProviderStatus::success)
            lastWriteIsWhole_ = true;
        if (status || (hasMoved && !ticket->isSynchronous()))
            notifyParentOnTicket(ticket, status.value_or(ProviderStatus::success));
        if (status.value_or(ProviderStatus::success) != ProviderStatus::success || !hasMoved)
            return;
    }
}

/// Asks the client about what is pending, at intervals. The lock is let go for it, so the request that the answer is
/// for is known by its time.
void TransportProvider::askWhetherToCancel(Lock& held)
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
        if (!isUnwanted || isStopRequested() || !ticket || ticket->startTime() != askedFor)
            continue;
        const auto current = connection();
        notifyParentOnTicket(ticket,
                             direction == Direction::write && current ? withdrawn(*ticket, *current, status) : status);
    }
    askAgain_ = Clock::now() + kCancelInterval;
}

} // namespace dmf
