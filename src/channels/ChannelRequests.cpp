#include <dmf/ADMDuplexDataChannelBase.h>

#include <limits>
#include <new>

#include <dmf/ADMConnectionProvider.h>

#include "channels/ErrorRecord.h"

using dmf::ChannelError;
using dmf::internal::errorRecord;
namespace ProviderStatus = dmf::ProviderStatus;

// The part of a channel that takes the client's requests to the provider.

namespace {
bool isValidTimeout(double seconds)
{
    return !(seconds < 0); // NaN is one
}

std::uint32_t microseconds(double seconds)
{
    // 1800 seconds would still fit, but from there on clients mean "as long as it takes".
    return seconds < 1800 ? static_cast<std::uint32_t>(seconds * 1'000'000) : dmf::kNoTimeout;
}

/// Bytes that did arrive before the time ran out are a success for those who asked for any length.
std::int16_t forgivingTimeout(std::int16_t status, std::uint32_t processed)
{
    return status == ProviderStatus::timedOut && processed > 0 ? ProviderStatus::success : status;
}
} // namespace

/// Tests a request: first what is asked for, then whether the channel is open; gives the provider to ask.
ChannelError ADMDuplexDataChannelBase::checkRequest(bool isComplete, double timeout,
                                                    std::shared_ptr<ADMConnectionProvider>& provider) const
{
    if (!isComplete || !isValidTimeout(timeout))
        return ChannelError::invalidArgument;
    if (shouldClose_)
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

namespace {
/// Stores the record of a request that was refused before anything moved; true when it was not.
bool report(ChannelError code, std::int32_t direction, dmf::Dictionary* error)
{
    if (code != ChannelError::none && error)
        *error = errorRecord(code, direction);
    return code == ChannelError::none;
}

/// The same for a transfer that came to its end.
bool report(std::int16_t status, std::int32_t direction, std::uint32_t processed, dmf::Dictionary* error)
{
    if (report(ADMDuplexDataChannelBase::translateError(status), direction, error))
        return true;
    if (error)
        error->set(kDMDataChannelProcessedDataLength, processed);
    return false;
}
} // namespace

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
