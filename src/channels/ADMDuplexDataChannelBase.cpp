#include <dmf/ADMDuplexDataChannelBase.h>

#include <algorithm>
#include <limits>
#include <new>

#include <dmf/ADMConnectionProvider.h>
#include <dmf/ADMMessageQueue.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include "channels/ChannelOutcome.h"
#include "foundation/logging/AfterFork.h"

using dmf::ChannelError;
using dmf::internal::errorRecord;
using dmf::internal::forgivingTimeout;
using dmf::internal::isValidTimeout;
using dmf::internal::microseconds;
using dmf::internal::report;
namespace ProviderStatus = dmf::ProviderStatus;

namespace {
/// At the socket transport's block size this is a megabyte a channel.
constexpr std::size_t kBlocksKept = 16;
/// What a block costs beside its bytes: the object that holds them, its place in the queue, and the allocations' own.
constexpr std::size_t kBlockOverhead = 128;
} // namespace

ADMDuplexDataChannelBase::ADMDuplexDataChannelBase(Initializer&& initializer)
    : serviceInfo_(std::move(initializer.serviceInfo_)), name_(std::move(initializer.name_)),
      lock_(std::make_shared<dmf::CourteousLock>())
{
}

ADMDuplexDataChannelBase::~ADMDuplexDataChannelBase()
{
    // Nobody else can reach the channel any more, the provider included, which holds it weakly.
    if (provider_)
        provider_->close();
    if (messageQueue_)
        messageQueue_->invalidate();
}

void ADMDuplexDataChannelBase::makeMessageQueue()
{
    messageQueue_ = ADMMessageQueue::initWithTarget(shared_from_this(), &ADMDuplexDataChannelBase::deliverQueuedObject);
}

std::shared_ptr<ADMConnectionProvider> ADMDuplexDataChannelBase::provider() const
{
    std::lock_guard guard(*lock_);
    return provider_;
}

void ADMDuplexDataChannelBase::setProvider(std::shared_ptr<ADMConnectionProvider> provider)
{
    std::lock_guard guard(*lock_);
    provider_.swap(provider);
}

std::uint32_t ADMDuplexDataChannelBase::maxReadPacketSize() const
{
    const auto current = provider();
    return current ? current->maxReadPacketSize() : 0;
}

std::uint32_t ADMDuplexDataChannelBase::maxWritePacketSize() const
{
    const auto current = provider();
    return current ? current->maxWritePacketSize() : 0;
}

// Opening and closing

bool ADMDuplexDataChannelBase::open()
{
    if (dmf::internal::isRefusedAfterFork())
        return false;
    const auto closeRequestsBefore = closeRequests_.load();
    if (DMIsLoggingEnabled())
        DMFLog("debug", "Started opening channel for device with uri - %@", serviceInfo_->uri());
    if (!serviceInfo_->device())
        return false;

    std::int16_t status = openProvider(closeRequestsBefore);
    if (status == ProviderStatus::success && shouldClose_) {
        if (DMIsLoggingEnabled())
            DMFLog("debug", "Channel was closed during open");
        close();
        return false;
    }
    if (DMIsLoggingEnabled())
        DMFLog("debug", "Finished opening channel for device with uri - %@, result - %s", serviceInfo_->uri(),
               status == ProviderStatus::success ? "success" : "failure");
    return status == ProviderStatus::success;
}

std::int16_t ADMDuplexDataChannelBase::openProvider(std::uint32_t closeRequestsBefore)
{
    std::unique_lock held(*lock_);
    if (provider_ && provider_->isClosing())
        return ProviderStatus::notOpen; // that close goes on, so its mark stays, and so does what was not delivered
    shouldClose_ = false;
    messageQueue_->removeAllObjects();
    undeliveredBytes_ = 0;
    if (closeRequests_ != closeRequestsBefore) {
        // Closed while the device was looked for: that wish must not be lost, and connecting would be in vain.
        shouldClose_ = true;
        return ProviderStatus::success;
    }
    if (!provider_)
        return createAndOpenProviderWithTimeout(dmf::Date::distantFuture().timeIntervalSince(dmf::Date::now()));
    const auto current = provider_;
    return current->openHolding(held);
}

std::int16_t ADMDuplexDataChannelBase::createAndOpenProviderWithTimeout(double)
{
    throw dmf::UnrecognizedOperation("ADMDuplexDataChannelBase", "createAndOpenProviderWithTimeout:");
}

void ADMDuplexDataChannelBase::close()
{
    if (DMIsLoggingEnabled())
        DMFLog("debug", "Started closing channel for device with uri - %@", serviceInfo_->uri());
    ++closeRequests_;
    shouldClose_ = true; // at once, so that a connect in progress gives up
    std::shared_ptr<ADMConnectionProvider> current;
    {
        std::lock_guard guard(*lock_);
        shouldClose_ = true; // once more: an opening may have come in between, and this close is to end it
        current = provider_;
    }
    // Outside the lock: the worker thread needs it to finish.
    if (current)
        current->close();
    if (DMIsLoggingEnabled())
        DMFLog("debug", "Finished closing channel for device with uri - %@", serviceInfo_->uri());
}

bool ADMDuplexDataChannelBase::isOpened() const
{
    if (shouldClose_)
        return false;
    std::lock_guard guard(*lock_);
    return provider_ && provider_->isOpen();
}

// The delegate

std::shared_ptr<ADMDuplexDataChannelDelegate> ADMDuplexDataChannelBase::delegate() const
{
    std::lock_guard guard(delegateLock_);
    return delegate_.lock();
}

void ADMDuplexDataChannelBase::setDelegate(const std::shared_ptr<ADMDuplexDataChannelDelegate>& delegate)
{
    std::lock_guard guard(delegateLock_);
    delegate_ = delegate;
}

bool ADMDuplexDataChannelBase::shouldCancelRead()
{
    return shouldCancel(&ADMDuplexDataChannelDelegate::shouldCancelRead);
}

bool ADMDuplexDataChannelBase::shouldCancelWrite()
{
    return shouldCancel(&ADMDuplexDataChannelDelegate::shouldCancelWrite);
}

bool ADMDuplexDataChannelBase::shouldCancel(Question ADMDuplexDataChannelDelegate::*question)
{
    const auto current = delegate();
    if (!current || !((*current).*question))
        return shouldClose_;
    try {
        return ((*current).*question)(*this);
    } catch (const std::exception&) {
        return false; // a client that cannot answer has not asked to cancel
    }
}

void ADMDuplexDataChannelBase::scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    std::lock_guard guard(*lock_);
    messageQueue_->scheduleInRunLoop(runLoop, mode);
}

void ADMDuplexDataChannelBase::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    std::lock_guard guard(*lock_);
    messageQueue_->removeFromRunLoop(runLoop, mode);
}

// What the provider tells. One call is queued as one value whose kind says which call it is, since a channel moves a
// lot of blocks: bytes that were read, a number of bytes written, a boolean for a finished transfer (true for a read),
// a dictionary for a failure.

void ADMDuplexDataChannelBase::writeDataOfSize(std::uint32_t size)
{
    messageQueue_->addObject(dmf::Number(size));
}

void ADMDuplexDataChannelBase::readData(std::span<const std::uint8_t> bytes)
{
    undeliveredBytes_ += bytes.size() + kBlockOverhead;
    std::lock_guard guard(*lock_);
    // Blocks go round: the memory of one that the client has let go of takes later bytes. Fresh memory for each would
    // cost more, in page faults, than the bytes themselves.
    blocks_.resize(kBlocksKept);
    auto& block = blocks_[nextBlock_++ % kBlocksKept];
    block.assign(bytes);
    messageQueue_->addObject(block);
}

void ADMDuplexDataChannelBase::connectionDidClose()
{
    blocks_.clear();
}

void ADMDuplexDataChannelBase::countDelivered(std::size_t size) noexcept
{
    // Never below zero: an opening in between has dropped the rest and begun to count anew.
    auto before = undeliveredBytes_.load();
    while (!undeliveredBytes_.compare_exchange_weak(before, before - std::min<std::uint64_t>(before, size))) {
    }
}

void ADMDuplexDataChannelBase::writeDataFinished(std::int16_t status)
{
    queueFinished(Direction::write, status);
}
void ADMDuplexDataChannelBase::readDataFinished(std::int16_t status)
{
    queueFinished(Direction::read, status);
}

void ADMDuplexDataChannelBase::queueFinished(Direction direction, std::int16_t status)
{
    if (status == ProviderStatus::success)
        messageQueue_->addObject(direction == Direction::read);
    else
        messageQueue_->addObject(errorRecord(translateError(status), static_cast<std::int32_t>(direction)));
}

void ADMDuplexDataChannelBase::deliverQueuedObject(ADMMessageQueue&, const dmf::Value& object)
{
    if (const auto* const block = object.asData())
        countDelivered(block->size() + kBlockOverhead);
    const auto current = delegate();
    if (!current)
        return;
    const auto tell = [this](const auto& operation, const auto&... arguments) {
        if (operation)
            operation(*this, arguments...);
    };
    if (const auto* const block = object.asData())
        tell(current->didReadDataBlock, *block);
    else if (const auto* const count = object.asNumber())
        tell(current->didWriteDataBlockOfLength, count->uint32Value());
    else if (const auto* const wasRead = object.asBool())
        tell(*wasRead ? current->didFinishReadData : current->didFinishWriteData);
    else if (const auto* const failure = object.asDictionary())
        tell(current->didFailWithError, *failure);
}

// Requests

/// Tests a request: first what is asked for, then whether the channel is open; gives the provider to ask.
ChannelError ADMDuplexDataChannelBase::checkRequest(bool isComplete, double timeout,
                                                    std::shared_ptr<ADMConnectionProvider>& provider) const
{
    if (!isComplete || !isValidTimeout(timeout))
        return ChannelError::invalidArgument;
    if (shouldClose_ || dmf::internal::isRefusedAfterFork())
        return ChannelError::notOpen;
    std::lock_guard guard(*lock_);
    if (!provider_ || !provider_->isOpen())
        return ChannelError::notOpen;
    provider = provider_;
    return ChannelError::none;
}

/// A refusal is told at once, on the caller's thread.
bool ADMDuplexDataChannelBase::answerScheduling(Direction direction, ChannelError code)
{
    if (code == ChannelError::none)
        return true;
    if (const auto current = delegate(); current && current->didFailWithError)
        current->didFailWithError(*this, errorRecord(code, static_cast<std::int32_t>(direction)));
    return false;
}

bool ADMDuplexDataChannelBase::scheduleWriteData(const dmf::Data& data, double timeout)
{
    std::shared_ptr<ADMConnectionProvider> current;
    auto code =
        checkRequest(!data.empty() && data.size() <= std::numeric_limits<std::uint32_t>::max(), timeout, current);
    if (code == ChannelError::none)
        code = translateError(current->writeAsyncData(data, microseconds(timeout)));
    return answerScheduling(Direction::write, code);
}

bool ADMDuplexDataChannelBase::scheduleReadDataOfLength(std::uint32_t length, double timeout)
{
    std::shared_ptr<ADMConnectionProvider> current;
    auto code = checkRequest(length != 0, timeout, current);
    if (code == ChannelError::none)
        code = translateError(current->readAsyncDataOfLength(length, microseconds(timeout)));
    return answerScheduling(Direction::read, code);
}

bool ADMDuplexDataChannelBase::scheduleReadDataWithTimeout(double timeout)
{
    std::shared_ptr<ADMConnectionProvider> current;
    auto code = checkRequest(true, timeout, current);
    if (code == ChannelError::none)
        code = translateError(current->readAsyncDataOfLength(0, microseconds(timeout)));
    return answerScheduling(Direction::read, code);
}

bool ADMDuplexDataChannelBase::writeData(const dmf::Data& data, double timeout, dmf::Dictionary* error)
{
    constexpr auto direction = static_cast<std::int32_t>(Direction::write);
    std::shared_ptr<ADMConnectionProvider> current;
    const bool isComplete = !data.empty() && data.size() <= std::numeric_limits<std::uint32_t>::max();
    if (!report(checkRequest(isComplete, timeout, current), direction, error))
        return false;
    auto length = static_cast<std::uint32_t>(data.size());
    const std::int16_t status = current->writeData(data.bytes().data(), length, microseconds(timeout));
    return report(status, direction, length, error);
}

bool ADMDuplexDataChannelBase::finishWriting(double timeout, dmf::Dictionary* error)
{
    constexpr auto direction = static_cast<std::int32_t>(Direction::write);
    std::shared_ptr<ADMConnectionProvider> current;
    if (!report(checkRequest(true, timeout, current), direction, error))
        return false;
    return report(current->finishWriting(microseconds(timeout)), direction, 0, error);
}

bool ADMDuplexDataChannelBase::readDataOfLength(dmf::Data& data, std::uint32_t length, double timeout,
                                                dmf::Dictionary* error)
{
    return readAppending(data, length, true, timeout, error);
}

bool ADMDuplexDataChannelBase::readDataUpToLength(dmf::Data& data, std::uint32_t length, double timeout,
                                                  dmf::Dictionary* error)
{
    return readAppending(data, length, false, timeout, error);
}

bool ADMDuplexDataChannelBase::readAppending(dmf::Data& data, std::uint32_t length, bool wholeLength, double timeout,
                                             dmf::Dictionary* error)
{
    constexpr auto direction = static_cast<std::int32_t>(Direction::read);
    std::shared_ptr<ADMConnectionProvider> current;
    if (!report(checkRequest(length != 0, timeout, current), direction, error))
        return false;
    // Not filled beforehand: asking for much costs no memory until as much arrives.
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[length]);
    if (!buffer)
        return report(ChannelError::failed, direction, error);
    std::uint32_t processed = length;
    std::int16_t status = current->readData(buffer.get(), processed, wholeLength, microseconds(timeout));
    data.append(std::span<const std::uint8_t>(buffer.get(), processed));
    if (!wholeLength)
        status = forgivingTimeout(status, processed);
    return report(status, direction, processed, error);
}

std::uint32_t ADMDuplexDataChannelBase::readDataToBuffer(std::span<std::uint8_t> buffer, double timeout,
                                                         dmf::Dictionary* error)
{
    constexpr auto direction = static_cast<std::int32_t>(Direction::read);
    std::shared_ptr<ADMConnectionProvider> current;
    const bool isComplete = !buffer.empty() && buffer.size() <= std::numeric_limits<std::uint32_t>::max();
    if (!report(checkRequest(isComplete, timeout, current), direction, error))
        return 0;
    auto processed = static_cast<std::uint32_t>(buffer.size());
    const std::int16_t status =
        forgivingTimeout(current->readData(buffer.data(), processed, false, microseconds(timeout)), processed);
    return report(status, direction, processed, error) ? processed : 0;
}

ChannelError ADMDuplexDataChannelBase::translateError(std::int16_t status) noexcept
{
    return dmf::internal::channelErrorOf(status);
}
