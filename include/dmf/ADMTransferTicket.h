#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

class ADMDuplexDataChannelBase;
class IDMLock;

namespace dmf {
/// In place of a time-out in microseconds: none.
inline constexpr std::uint32_t kNoTimeout = 0xFFFFFFFF;
} // namespace dmf

/// One request to move bytes: what is asked for and how far it has come. The transport moves `remaining()` bytes and
/// says so by `advance`. Not thread-safe: see ADMConnectionProvider for who may use it when.
class DMF_EXPORT ADMTransferTicket {
public:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] std::uint32_t length() const noexcept { return length_; }
    /// Bytes moved so far; for a read of any length, since the last block was told.
    [[nodiscard]] std::uint32_t processed() const noexcept { return processed_; }
    /// Where the next bytes go, of a read. Of an asynchronous one it may be less than what is still wanted: telling of
    /// the progress makes room for more.
    [[nodiscard]] std::span<std::uint8_t> space() const noexcept
    {
        const auto untold = processed_ - reported_;
        return {space_ + untold, std::min(length_ - processed_, window_ - untold)};
    }
    /// The bytes that are to be sent next, of a write.
    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept
    {
        return {bytes_ + processed_, length_ - processed_};
    }
    void advance(std::uint32_t count) noexcept { processed_ += count; }
    [[nodiscard]] bool isComplete() const noexcept { return processed_ == length_; }

    /// Of a read: whether the whole length is wanted, or whatever comes.
    [[nodiscard]] bool wantsWholeLength() const noexcept { return wantsWholeLength_; }
    /// Whether somebody waits for the end of the transfer; otherwise progress is told to the channel.
    [[nodiscard]] bool isSynchronous() const noexcept { return isSynchronous_; }
    /// In microseconds from `startTime`; dmf::kNoTimeout means none.
    [[nodiscard]] std::uint32_t timeout() const noexcept { return timeout_; }
    [[nodiscard]] Clock::time_point startTime() const noexcept { return startTime_; }
    /// When the request is to end with ProviderStatus::timedOut.
    [[nodiscard]] std::optional<Clock::time_point> deadline() const noexcept
    {
        if (timeout_ == dmf::kNoTimeout)
            return std::nullopt;
        return startTime_ + std::chrono::microseconds(timeout_);
    }

private:
    friend class ADMConnectionProvider;

    [[nodiscard]] static ADMTransferTicket forRead(std::uint8_t* space, std::uint32_t length, bool wholeLength,
                                                   std::uint32_t timeout);
    [[nodiscard]] static ADMTransferTicket forWrite(const std::uint8_t* bytes, std::uint32_t length,
                                                    std::uint32_t timeout);
    /// Nothing when there is no memory for it, or nothing to read.
    [[nodiscard]] static std::optional<ADMTransferTicket> forAsyncRead(std::uint32_t length, std::uint32_t packetSize,
                                                                       std::uint32_t timeout);
    [[nodiscard]] static ADMTransferTicket forAsyncWrite(dmf::Data data, std::uint32_t timeout);
    /// Tells the channel, unless null, of what has been moved since it was told last; of an asynchronous one.
    void tellProgress(ADMDuplexDataChannelBase* channel);

    std::uint8_t* space_ = nullptr;
    const std::uint8_t* bytes_ = nullptr;
    std::uint32_t length_ = 0;
    std::uint32_t window_ = 0; // the size of the memory at space_
    std::uint32_t processed_ = 0;
    std::uint32_t reported_ = 0;
    std::uint32_t timeout_ = dmf::kNoTimeout;
    Clock::time_point startTime_{};
    bool wantsWholeLength_ = true;
    bool isSynchronous_ = false;
    std::int16_t status_ = 0;
    IDMLock* waiter_ = nullptr;                   // released to wake the waiting caller
    std::unique_ptr<std::uint8_t[]> ownedBuffer_; // of an asynchronous read
    dmf::Data ownedData_;                         // of an asynchronous write
};
