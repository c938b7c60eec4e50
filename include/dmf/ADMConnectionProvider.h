#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include <dmf/ADMWorkerThread.h>
#include <dmf/platform/CourteousLock.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

class ADMCoreModelInfo;
class ADMDuplexDataChannelBase;
class IDMDevice;
class IDMLock;

namespace dmf {

/// The statuses of connection providers that have a meaning of their own; a provider may give any other number.
/// After `success`, `notOpen`, `timedOut`, `peerEnded` and `cancelled` a synchronous transfer leaves the connection
/// open, after all others it closes it.
namespace ProviderStatus {
inline constexpr std::int16_t success = 0;
inline constexpr std::int16_t invalidParameter = -12;
inline constexpr std::int16_t timedOut = -14;
inline constexpr std::int16_t failed = -21;
inline constexpr std::int16_t notOpen = -25;
inline constexpr std::int16_t busy = -52;
inline constexpr std::int16_t peerEnded = -53;  ///< the device sends no more; writing may go on
inline constexpr std::int16_t cancelled = -200; ///< the client asked to give up
} // namespace ProviderStatus

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

/// The transport's end of a duplex data channel: at most one read and one write at a time, each either synchronous
/// (the caller waits) or asynchronous (moved by the worker thread, progress told to the channel). A transport derives
/// from it and supplies the steps; this class keeps the requests and hands them between threads. Made by
/// `initWithParent`. Thread-safe.
///
/// The operations may wait for the worker thread, which needs the lock: call them without it.
///
/// The lock is the channel's own. A subclass's `performRead` and `performWrite` run without it and own their ticket for
/// the length of the call. Its worker loop takes the lock to fetch `readTicket` and `writeTicket` and to work on them;
/// once the lock is let go, a ticket may be gone. Its `signalForStop` must not take the lock.
class DMF_EXPORT ADMConnectionProvider : public ADMWorkerThread {
public:
    using Status = std::int16_t;

    /// A provider of the class `Provider`, whose constructor takes the same arguments; empty without parent or device.
    /// `info` is for the subclass and may be null. The parent is not kept alive.
    template <std::derived_from<ADMWorkerThread> Provider, class... Arguments>
    [[nodiscard]] static std::shared_ptr<Provider>
    initWithParent(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                   std::shared_ptr<IDMDevice> device, Arguments&&... arguments)
    {
        if (!parent || !device)
            return nullptr;
        return std::make_shared<Provider>(parent, std::move(info), std::move(device),
                                          std::forward<Arguments>(arguments)...);
    }
    ~ADMConnectionProvider() override;

    /// Connects; success at once when open already. Blocks as long as `performOpen` does.
    Status open();
    /// Stops the worker thread, disconnects and forgets the pending read. Somebody who waits for a transfer gets
    /// `notOpen`; asynchronous requests end without a word. Called on the worker's own thread it does not wait for it.
    Status close();
    [[nodiscard]] virtual bool isOpen();
    /// Whether a thread waits in `close` for the worker's end; until then nothing is opened or begun.
    [[nodiscard]] bool isClosing() const;

    /// Synchronous transfers: `length` is the number of bytes to move and, on return, moved. With `wholeLength` false
    /// a read ends as soon as something has arrived. Time-outs are in microseconds.
    Status readData(std::uint8_t* buffer, std::uint32_t& length, bool wholeLength, std::uint32_t timeout);
    Status writeData(const std::uint8_t* bytes, std::uint32_t& length, std::uint32_t timeout);

    /// Asynchronous transfers; success means that the request was taken. The length 0 reads whatever comes, in blocks
    /// of up to maxReadPacketSize, until a failure or the time-out. The data is kept until the write has ended.
    /// A worker thread that has closed the connection itself, in answer to a question, can make no request any more
    /// (`failed`, and nothing is closed): it is on its way out and cannot wait for itself to start the next one.
    Status readAsyncDataOfLength(std::uint32_t length, std::uint32_t timeout);
    Status writeAsyncData(dmf::Data data, std::uint32_t timeout);

    /// Gives up the pending read. Always success.
    Status resetReadTicket();

    /// The most bytes moved at once; 0 while closed.
    [[nodiscard]] std::uint32_t maxReadPacketSize() const noexcept { return maxReadPacketSize_; }
    [[nodiscard]] std::uint32_t maxWritePacketSize() const noexcept { return maxWritePacketSize_; }

protected:
    ADMConnectionProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                          std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device);

    /// The steps. The base's throw dmf::UnrecognizedOperation. `performOpen` and `performClose` are called with the
    /// lock held. `performClose` must make a `performRead` or `performWrite` that is under way on another thread end
    /// soon (with `notOpen`), and may be called on the worker thread from inside `notifyParentOnTicket`.
    virtual Status performOpen();
    virtual Status performClose();
    /// Moves the ticket's bytes on the caller's thread, until done, timed out or cancelled. Before it begins it takes
    /// the lock to fetch the connection, and gives `notOpen` unless the ticket is still pending: the lock was let go in
    /// between, and what is open by now may be another connection.
    virtual Status performRead(ADMTransferTicket& ticket);
    virtual Status performWrite(ADMTransferTicket& ticket);
    /// Whether a thread of the subclass's own serves asynchronous requests; the worker is then never started.
    [[nodiscard]] virtual bool hasPrivateAsyncThread() const;

    /// Called with the lock held after a request was made for a thread that is already serving: wakes it. It may serve
    /// the request on the spot, here on the caller's thread.
    virtual void requestArrived(ADMTransferTicket& ticket);

    /// The worker's loop (`run`, without the lock held) says one of these before it takes the lock for the first time:
    /// that it serves requests from now on, or that it cannot. Whoever made the first request waits for it. A loop that
    /// ends without a word could not serve. When the loop ends without having been asked to, pending requests fail.
    void signalReady();
    void signalCannotServe();

    /// Tells that a ticket has come further (`success`) or ended (any other status, or all bytes moved). Ignores null
    /// and a ticket that has been told ended already. Takes the lock. The ticket may be gone afterwards.
    void notifyParentOnTicket(ADMTransferTicket* ticket, Status status);

    /// The request that the serving thread has to work on, or null; the lock must be held.
    [[nodiscard]] ADMTransferTicket* readTicket() noexcept { return toServe(readTicket_); }
    [[nodiscard]] ADMTransferTicket* writeTicket() noexcept { return toServe(writeTicket_); }

    /// The channel, unless it is being destroyed.
    [[nodiscard]] std::shared_ptr<ADMDuplexDataChannelBase> parent() const { return parent_.lock(); }
    /// What the client answers to shouldCancelRead or shouldCancelWrite; true once the channel has gone. The lock must
    /// not be held.
    [[nodiscard]] bool shouldCancelRead();
    [[nodiscard]] bool shouldCancelWrite();
    [[nodiscard]] const std::shared_ptr<ADMCoreModelInfo>& modelInfo() const noexcept { return modelInfo_; }
    [[nodiscard]] const std::shared_ptr<IDMDevice>& device() const noexcept { return device_; }
    [[nodiscard]] dmf::CourteousLock& lock() noexcept { return *lock_; }
    using Lock = std::unique_lock<dmf::CourteousLock>;
    /// Whether the request still stands: no close has ended it. The lock must be held.
    [[nodiscard]] bool isPending(const ADMTransferTicket& ticket) const noexcept
    {
        return &ticket == readTicket_ || &ticket == writeTicket_;
    }
    /// Lets the lock go for as long as others wait for it, a few milliseconds at most; at once when nobody does. For
    /// loops that hardly ever wait, which would keep everybody out.
    void letOthersIn(Lock& held);
    void setMaxPacketSizes(std::uint32_t read, std::uint32_t write) noexcept;

    std::uintptr_t threadEntry() override;
    [[nodiscard]] const char* threadName() const noexcept override;

private:
    using Step = Status (ADMConnectionProvider::*)(ADMTransferTicket&);
    struct StartHandShake;

    [[nodiscard]] static ADMTransferTicket* toServe(ADMTransferTicket* ticket) noexcept;
    [[nodiscard]] Status admitRequest(Lock& held, ADMTransferTicket* const& pending);
    [[nodiscard]] Status submit(Lock& held, ADMTransferTicket*& pending, ADMTransferTicket& ticket);
    Status transfer(Lock& held, ADMTransferTicket*& pending, ADMTransferTicket& ticket, Step perform);
    [[nodiscard]] Status waitForEnd(Lock& held, ADMTransferTicket& ticket);
    [[nodiscard]] bool startWorker();
    void answerHandShake(bool canServe);
    void workerEnded();
    void stopWorker(Lock& held);
    Status closeHolding(Lock& held);
    void abandon(ADMTransferTicket* ticket);
    void forgetRead();
    void notifyWrite(ADMTransferTicket& ticket, Status status);
    void notifyRead(ADMTransferTicket& ticket, Status status);

    const std::weak_ptr<ADMDuplexDataChannelBase> parent_;
    const std::shared_ptr<ADMCoreModelInfo> modelInfo_;
    const std::shared_ptr<IDMDevice> device_;
    const std::shared_ptr<dmf::CourteousLock> lock_;
    /// Held while the worker is started or waited for: one thread at a time may do either. Taken after lock_, never
    /// before it.
    std::mutex lifeLock_;
    std::atomic<std::uint32_t> maxReadPacketSize_{0};
    std::atomic<std::uint32_t> maxWritePacketSize_{0};
    std::atomic<StartHandShake*> handShake_{nullptr};
    /// The worker takes requests. Changed with lock_ held.
    std::atomic<bool> isServing_{false};
    ADMTransferTicket asyncRead_; // this and the following guarded by lock_
    ADMTransferTicket asyncWrite_;
    ADMTransferTicket* readTicket_ = nullptr;  // null: free
    ADMTransferTicket* writeTicket_ = nullptr; // null: free
    int closesUnderWay_ = 0;
};
