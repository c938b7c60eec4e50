#include <dmf/ADMConnectionProvider.h>

#include <new>
#include <thread>
#include <utility>

#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/platform/Error.h>

#include "foundation/threads/HandOver.h"

using dmf::internal::HandOver;
namespace ProviderStatus = dmf::ProviderStatus;

namespace {
constexpr std::uint32_t kSmallestWindow = 16 * 1024;

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
    : parent_(parent), modelInfo_(std::move(info)), device_(std::move(device)), lock_(parent->lockObject())
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
    std::lock_guard held(*lock_);
    if (isOpen())
        return closesUnderWay_ > 0 ? ProviderStatus::notOpen : ProviderStatus::success;
    setMaxPacketSizes(0, 0);
    forgetRead();
    writeTicket_ = nullptr;
    asyncWrite_ = {};
    return performOpen();
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
    isServing_ = false;
    if (isCurrentThread()) {
        signalForStop();
    } else if (isRunning()) {
        ++closesUnderWay_; // nothing is begun on a connection that is going
        stopWorker(held);
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
    ADMTransferTicket ticket;
    ticket.space_ = buffer;
    ticket.length_ = ticket.window_ = wanted;
    ticket.wantsWholeLength_ = wholeLength;
    ticket.timeout_ = timeout;
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
    ADMTransferTicket ticket;
    ticket.bytes_ = bytes;
    ticket.length_ = wanted;
    ticket.timeout_ = timeout;
    const Status status = transfer(held, writeTicket_, ticket, &ADMConnectionProvider::performWrite);
    length = ticket.processed_;
    return status;
}

ADMConnectionProvider::Status ADMConnectionProvider::readAsyncDataOfLength(std::uint32_t length, std::uint32_t timeout)
{
    Lock held(*lock_);
    if (const Status refusal = admitRequest(held, readTicket_); refusal != ProviderStatus::success)
        return refusal;
    asyncRead_ = {};
    asyncRead_.length_ = length != 0 ? length : maxReadPacketSize_.load();
    // What has been told is out of the buffer, so that much can be read through a small one.
    asyncRead_.window_ = std::min(asyncRead_.length_, std::max(maxReadPacketSize_.load(), kSmallestWindow));
    asyncRead_.ownedBuffer_.reset(new (std::nothrow) std::uint8_t[asyncRead_.window_]);
    if (!asyncRead_.ownedBuffer_ || asyncRead_.length_ == 0)
        return ProviderStatus::failed;
    asyncRead_.space_ = asyncRead_.ownedBuffer_.get();
    asyncRead_.wantsWholeLength_ = length != 0;
    asyncRead_.timeout_ = timeout;
    return submit(held, readTicket_, asyncRead_);
}

ADMConnectionProvider::Status ADMConnectionProvider::writeAsyncData(dmf::Data data, std::uint32_t timeout)
{
    Lock held(*lock_);
    if (const Status refusal = admitRequest(held, writeTicket_); refusal != ProviderStatus::success)
        return refusal;
    asyncWrite_ = {};
    asyncWrite_.ownedData_ = std::move(data);
    asyncWrite_.bytes_ = asyncWrite_.ownedData_.bytes().data();
    asyncWrite_.length_ = static_cast<std::uint32_t>(asyncWrite_.ownedData_.size());
    asyncWrite_.timeout_ = timeout;
    return submit(held, writeTicket_, asyncWrite_);
}

ADMConnectionProvider::Status ADMConnectionProvider::admitRequest(Lock& held, ADMTransferTicket* const& pending)
{
    // A worker on its way out must be gone first: it could still see the new request and not serve it.
    while (!isServing_ && isRunning() && closesUnderWay_ == 0 && !isCurrentThread())
        stopWorker(held);
    if (!isOpen() || closesUnderWay_ > 0)
        return ProviderStatus::notOpen;
    return pending ? ProviderStatus::busy : ProviderStatus::success;
}

/// Hands an asynchronous request to the thread that serves it, starting the worker when there is none.
ADMConnectionProvider::Status ADMConnectionProvider::submit(Lock& held, ADMTransferTicket*& pending,
                                                            ADMTransferTicket& ticket)
{
    const bool isServed = isServing_ || hasPrivateAsyncThread();
    if (!isServed && isCurrentThread()) {
        ticket = {}; // see the header: the connection may be a fresh one, and is none of this worker's
        return ProviderStatus::failed;
    }
    ticket.startTime_ = ADMTransferTicket::Clock::now();
    pending = &ticket;
    if (isServed) {
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
                                                              ADMTransferTicket& ticket, Step perform)
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
    if ((isServing_ || hasPrivateAsyncThread()) && !isCurrentThread())
        return waitForEnd(held, ticket);

    held.unlock();
    const Status status = (this->*perform)(ticket);
    held.lock();
    if (!leavesConnectionOpen(status) && place.isOurs())
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
