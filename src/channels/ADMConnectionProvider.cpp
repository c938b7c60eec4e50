#include <dmf/ADMConnectionProvider.h>

#include <thread>
#include <utility>

#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/platform/Error.h>

#include "channels/WorkerStage.h"
#include "foundation/threads/HandOver.h"

using dmf::internal::HandOver;
using dmf::internal::WorkerStage;
namespace ProviderStatus = dmf::ProviderStatus;

namespace {
bool leavesConnectionOpen(std::int16_t status)
{
    switch (status) {
    case ProviderStatus::success:
    case ProviderStatus::notOpen:
    case ProviderStatus::timedOut:
    case ProviderStatus::peerEnded:
    case ProviderStatus::cancelled: return true;
    default: return false;
    }
}

[[noreturn]] void unrecognized(const char* operation)
{
    throw dmf::UnrecognizedOperation("ADMConnectionProvider", operation);
}
} // namespace

ADMConnectionProvider::ADMConnectionProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                                             std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device)
    : parent_(parent), modelInfo_(std::move(info)), device_(std::move(device)), lock_(parent->lockObject()),
      worker_(std::make_unique<WorkerStage>())
{
}

ADMConnectionProvider::~ADMConnectionProvider() = default;

bool ADMConnectionProvider::isOpen()
{
    unrecognized("isOpen");
}
ADMConnectionProvider::Status ADMConnectionProvider::performOpen()
{
    unrecognized("performOpen");
}
ADMConnectionProvider::Status ADMConnectionProvider::performClose()
{
    unrecognized("performClose");
}
ADMConnectionProvider::Status ADMConnectionProvider::performRead(ADMTransferTicket&)
{
    unrecognized("performRead");
}
ADMConnectionProvider::Status ADMConnectionProvider::performWrite(ADMTransferTicket&)
{
    unrecognized("performWrite");
}
ADMConnectionProvider::Status ADMConnectionProvider::performFinishWriting(ADMTransferTicket&)
{
    return ProviderStatus::success;
}
bool ADMConnectionProvider::hasPrivateAsyncThread() const
{
    return false;
}
void ADMConnectionProvider::requestArrived(ADMTransferTicket&) {}
const char* ADMConnectionProvider::threadName() const noexcept
{
    return "dmf-channel";
}

void ADMConnectionProvider::setMaxPacketSizes(std::uint32_t read, std::uint32_t write) noexcept
{
    maxReadPacketSize_ = read;
    maxWritePacketSize_ = write;
}

void ADMConnectionProvider::letOthersIn(Lock& held)
{
    constexpr int kTimesAtMost = 20;
    constexpr std::chrono::microseconds kLongEnoughToWakeUp{50};
    for (int i = 0; i < kTimesAtMost && lock_->isWanted(); ++i) {
        held.unlock();
        std::this_thread::sleep_for(kLongEnoughToWakeUp);
        held.lock();
    }
}

bool ADMConnectionProvider::shouldCancelRead()
{
    const auto channel = parent();
    return !channel || channel->shouldCancelRead();
}

bool ADMConnectionProvider::shouldCancelWrite()
{
    const auto channel = parent();
    return !channel || channel->shouldCancelWrite();
}

// Opening and closing

ADMConnectionProvider::Status ADMConnectionProvider::open()
{
    Lock held(*lock_);
    return openHolding(held);
}

ADMConnectionProvider::Status ADMConnectionProvider::openHolding(Lock& held)
{
    // One that was closed by its own worker: the next worker can be started when that one has gone.
    while (!isOpen() && isWorkerLeaving() && closesUnderWay_ == 0 && !isCurrentThread())
        awaitEndOfWorker(held);
    if (closesUnderWay_ > 0)
        return ProviderStatus::notOpen;
    if (isOpen())
        return ProviderStatus::success;
    setMaxPacketSizes(0, 0);
    forgetRead();
    writeTicket_ = nullptr;
    asyncWrite_ = {};
    const Status status = performOpen();
    if (status != ProviderStatus::success && isRunning())
        signalForStop();
    return status;
}

bool ADMConnectionProvider::isClosing() const
{
    std::lock_guard held(*lock_);
    return closesUnderWay_ > 0;
}

ADMConnectionProvider::Status ADMConnectionProvider::close()
{
    Lock held(*lock_);
    return closeHolding(held);
}

ADMConnectionProvider::Status ADMConnectionProvider::closeHolding(Lock& held)
{
    if (!isOpen())
        return ProviderStatus::success;
    worker_->leaves();
    if (isRunning())
        signalForStop();
    if (!isCurrentThread() && isRunning()) {
        ++closesUnderWay_; // nothing is begun on a connection that is going
        awaitEndOfWorker(held);
        --closesUnderWay_;
        if (!isOpen())
            return ProviderStatus::success; // another thread closed it as well
    }
    const Status status = performClose();
    abandon(readTicket_);
    abandon(writeTicket_);
    forgetRead();
    setMaxPacketSizes(0, 0);
    if (const auto channel = parent())
        channel->connectionDidClose();
    return status;
}

/// Lets a caller go who waits for a thread that will not serve him any more.
void ADMConnectionProvider::abandon(ADMTransferTicket* ticket)
{
    if (auto* const waiting = toServe(ticket); waiting && waiting->isSynchronous_)
        notifyParentOnTicket(waiting, ProviderStatus::notOpen);
}

ADMConnectionProvider::Status ADMConnectionProvider::resetReadTicket()
{
    std::lock_guard held(*lock_);
    abandon(readTicket_);
    forgetRead();
    return ProviderStatus::success;
}

void ADMConnectionProvider::forgetRead()
{
    readTicket_ = nullptr;
    asyncRead_ = {};
}

// Requests

ADMConnectionProvider::Status ADMConnectionProvider::readData(std::uint8_t* buffer, std::uint32_t& length,
                                                              bool wholeLength, std::uint32_t timeout)
{
    Lock held(*lock_);
    const auto wanted = std::exchange(length, 0);
    if (const Status refusal = admitRequest(held, readTicket_); refusal != ProviderStatus::success)
        return refusal;
    auto ticket = ADMTransferTicket::forRead(buffer, wanted, wholeLength, timeout);
    const Status status = transfer(held, readTicket_, ticket, &ADMConnectionProvider::performRead);
    length = ticket.processed_;
    return status;
}

ADMConnectionProvider::Status ADMConnectionProvider::writeData(const std::uint8_t* bytes, std::uint32_t& length,
                                                               std::uint32_t timeout)
{
    Lock held(*lock_);
    const auto wanted = std::exchange(length, 0);
    if (const Status refusal = admitRequest(held, writeTicket_); refusal != ProviderStatus::success)
        return refusal;
    auto ticket = ADMTransferTicket::forWrite(bytes, wanted, timeout);
    const Status status = transfer(held, writeTicket_, ticket, &ADMConnectionProvider::performWrite);
    length = ticket.processed_;
    return status;
}

ADMConnectionProvider::Status ADMConnectionProvider::finishWriting(std::uint32_t timeout)
{
    Lock held(*lock_);
    if (const Status refusal = admitRequest(held, writeTicket_); refusal != ProviderStatus::success)
        return refusal;
    auto ticket = ADMTransferTicket::forWrite(nullptr, 0, timeout);
    return transfer(held, writeTicket_, ticket, &ADMConnectionProvider::performFinishWriting, Handing::never);
}

ADMConnectionProvider::Status ADMConnectionProvider::readAsyncDataOfLength(std::uint32_t length, std::uint32_t timeout)
{
    Lock held(*lock_);
    if (const Status refusal = admitRequest(held, readTicket_); refusal != ProviderStatus::success)
        return refusal;
    auto ticket = ADMTransferTicket::forAsyncRead(length, maxReadPacketSize_, timeout);
    if (!ticket)
        return ProviderStatus::failed;
    asyncRead_ = *std::move(ticket);
    return submit(held, readTicket_, asyncRead_);
}

ADMConnectionProvider::Status ADMConnectionProvider::writeAsyncData(dmf::Data data, std::uint32_t timeout)
{
    Lock held(*lock_);
    if (const Status refusal = admitRequest(held, writeTicket_); refusal != ProviderStatus::success)
        return refusal;
    asyncWrite_ = ADMTransferTicket::forAsyncWrite(std::move(data), timeout);
    return submit(held, writeTicket_, asyncWrite_);
}

ADMConnectionProvider::Status ADMConnectionProvider::admitRequest(Lock& held, ADMTransferTicket* const& pending)
{
    // A worker on its way out must be gone first: it could still see the new request and not serve it.
    while (isWorkerLeaving() && closesUnderWay_ == 0 && !isCurrentThread())
        awaitEndOfWorker(held);
    if (!isOpen() || closesUnderWay_ > 0)
        return ProviderStatus::notOpen;
    return pending ? ProviderStatus::busy : ProviderStatus::success;
}

/// Hands an asynchronous request to the thread that serves it, starting the worker when there is none.
ADMConnectionProvider::Status ADMConnectionProvider::submit(Lock& held, ADMTransferTicket*& pending,
                                                            ADMTransferTicket& ticket)
{
    const bool hasThread = isServed();
    if (!hasThread && isCurrentThread()) {
        ticket = {}; // see the header: the connection may be a fresh one, and is none of this worker's
        return ProviderStatus::failed;
    }
    ticket.startTime_ = ADMTransferTicket::Clock::now();
    pending = &ticket;
    if (hasThread) {
        requestArrived(ticket);
        return ProviderStatus::success;
    }
    if (startWorker())
        return ProviderStatus::success;
    closeHolding(held);
    if (pending == &ticket)
        pending = nullptr;
    ticket = {};
    return ProviderStatus::failed;
}

/// A synchronous transfer: by the thread that is serving already, otherwise on the caller's own.
ADMConnectionProvider::Status ADMConnectionProvider::transfer(Lock& held, ADMTransferTicket*& pending,
                                                              ADMTransferTicket& ticket, Step perform, Handing handing)
{
    // Closing takes the request away and opening frees the place, so it is given back only if it is still ours.
    struct Place {
        Lock& held;
        ADMTransferTicket*& pending;
        ADMTransferTicket& ticket;
        [[nodiscard]] bool isOurs() const { return pending == &ticket; }
        ~Place()
        {
            if (!held.owns_lock())
                held.lock(); // a step threw
            if (isOurs())
                pending = nullptr;
        }
    } const place{held, pending, ticket};

    ticket.isSynchronous_ = true;
    ticket.startTime_ = ADMTransferTicket::Clock::now();
    pending = &ticket;
    // Nobody can wait for himself: what the serving thread asks for it does itself.
    const bool hasThread = !isCurrentThread() && isServed();
    if (hasThread && handing == Handing::toTheServingThread)
        return waitForEnd(held, ticket);

    held.unlock();
    const Status status = (this->*perform)(ticket);
    held.lock();
    if (!leavesConnectionOpen(status) && place.isOurs() && !hasThread)
        closeHolding(held);
    return status;
}

ADMConnectionProvider::Status ADMConnectionProvider::waitForEnd(Lock& held, ADMTransferTicket& ticket)
{
    HandOver turn(HandOver::State::taken);
    ticket.waiter_ = &turn;
    requestArrived(ticket);
    if (!ticket.waiter_)
        return ticket.status_; // served on the spot
    held.unlock();
    turn.lock();
    held.lock();
    return ticket.status_;
}

// The worker

std::int32_t ADMConnectionProvider::start()
{
    // A private thread serves without a word.
    const auto first = hasPrivateAsyncThread() ? WorkerStage::Stage::serving : WorkerStage::Stage::starting;
    return worker_->begin([this] { return ADMWorkerThread::start(); }, first);
}

bool ADMConnectionProvider::startWorker()
{
    return start() == 0 && worker_->awaitWord();
}

void ADMConnectionProvider::signalReady()
{
    worker_->serves();
}

void ADMConnectionProvider::signalCannotServe()
{
    worker_->leaves();
}

void ADMConnectionProvider::signalForStop()
{
    worker_->leaves();
    ADMWorkerThread::signalForStop();
}

bool ADMConnectionProvider::isWorkerLeaving() const
{
    return worker_->now() == WorkerStage::Stage::leaving && isRunning();
}

/// Whether a thread takes requests; waits for the word of one that has just been started.
bool ADMConnectionProvider::isServed()
{
    if (hasPrivateAsyncThread())
        return true;
    const auto stage = worker_->now();
    if (stage == WorkerStage::Stage::leaving || !isRunning())
        return false;
    return stage == WorkerStage::Stage::serving || (!isCurrentThread() && worker_->awaitWord());
}

/// Waits for a worker that takes no more requests. The lock is let go meanwhile: the worker may need it to finish.
void ADMConnectionProvider::awaitEndOfWorker(Lock& held)
{
    const auto leaving = lastStart(); // another thread may wait as well, and start the next one before this one goes on
    held.unlock();
    awaitEnd(leaving);
    held.lock();
}

std::uintptr_t ADMConnectionProvider::threadEntry()
{
    releaseStarter();
    try {
        const std::uintptr_t result = run();
        workerEnded();
        return result;
    } catch (...) {
        workerEnded();
        throw;
    }
}

void ADMConnectionProvider::workerEnded()
{
    if (!worker_->leaves())
        return; // it was asked to end, or never served
    std::lock_guard held(*lock_);
    notifyParentOnTicket(readTicket(), ProviderStatus::failed);
    notifyParentOnTicket(writeTicket(), ProviderStatus::failed);
}

// Progress

ADMTransferTicket* ADMConnectionProvider::toServe(ADMTransferTicket* ticket) noexcept
{
    // A synchronous request without a waiter is done on its caller's thread, or has ended and waits to be collected.
    return ticket && (!ticket->isSynchronous_ || ticket->waiter_) ? ticket : nullptr;
}

void ADMConnectionProvider::notifyParentOnTicket(ADMTransferTicket* ticket, Status status)
{
    if (!ticket)
        return;
    std::lock_guard held(*lock_);
    if (ticket->isSynchronous_) {
        if (auto* const waiter = std::exchange(ticket->waiter_, nullptr)) {
            ticket->status_ = status;
            waiter->unlock();
        }
        return;
    }
    const bool wasRead = ticket == readTicket_;
    if (!wasRead && ticket != writeTicket_)
        return;
    const auto channel = parent();
    ticket->tellProgress(channel.get());
    if (status == ProviderStatus::success && !ticket->isComplete())
        return;
    (wasRead ? readTicket_ : writeTicket_) = nullptr;
    *ticket = {};
    if (channel)
        wasRead ? channel->readDataFinished(status) : channel->writeDataFinished(status);
}
