#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include <dmf/ADMTransferTicket.h>
#include <dmf/ADMWorkerThread.h>
#include <dmf/ProviderStatus.h>
#include <dmf/platform/CourteousLock.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

class ADMCoreModelInfo;
class ADMDuplexDataChannelBase;
class IDMDevice;

namespace dmf::internal {
class WorkerStage;
}

/// The transport's end of a duplex data channel: at most one read and one write at a time, each either synchronous
/// (the caller waits) or asynchronous (moved by the worker thread, progress told to the channel). This class keeps the
/// requests and hands them between threads; a transport derives from dmf::TransportProvider, which has the rest of what
/// all transports need, or, if that does not fit it, from this one. Made by `initWithParent`. Thread-safe.
///
/// The operations may wait for the worker thread, which needs the lock: call them without it.
///
/// The worker is started by the first asynchronous request, or by the transport in `performOpen`:
///
///     none ──start──► starting ──signalReady──► serving ──asked to end, or the loop ended──► leaving ──► none
///                        └──signalCannotServe, asked to end, or the loop ended──────────────────┘
///
///     request          none                  starting             serving               leaving
///     asynchronous     starts the worker     waits for its word   handed to it          waits until none
///     synchronous      on the caller's       waits for its word   handed to it          waits until none
///                      thread
///     close            disconnects           asks it to end, waits until none, disconnects
///     open             connects              success at once (the connection is open)   waits until none, connects
///
/// Where `hasPrivateAsyncThread` says so all requests are handed over, and nobody waits for a word. Nobody waits on the
/// worker's own thread either. Opening, a worker that cannot serve, and a failed synchronous transfer are told there.
///
/// The lock is the channel's own. A subclass's `performRead`, `performWrite` and `performFinishWriting` run without it
/// and own their ticket for the length of the call. Its worker loop takes the lock to fetch `readTicket` and
/// `writeTicket` and to work on them; once the lock is let go, a ticket may be gone. Its `signalForStop` is called with
/// and without the lock: it must neither take it nor wait.
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
    /// Says that what was written is a whole document, and waits until the transport has ended it; `busy` while a write
    /// is pending. Always on the caller's thread, and a write of its own until it returns.
    Status finishWriting(std::uint32_t timeout);

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

    [[nodiscard]] std::int32_t start() override;
    void signalForStop() override;

protected:
    ADMConnectionProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                          std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device);

    /// The steps. The base's throw dmf::UnrecognizedOperation. `performOpen` and `performClose` are called with the
    /// lock held. `performClose` must make a `performRead` or `performWrite` that is under way on another thread end
    /// soon (with `notOpen`), and may be called on the worker thread from inside `notifyParentOnTicket`.
    /// A worker that `performOpen` has started is asked to end when it gives another status than success.
    virtual Status performOpen();
    virtual Status performClose();
    /// Moves the ticket's bytes on the caller's thread, until done, timed out or cancelled. Before it begins it takes
    /// the lock to fetch the connection, and gives `notOpen` unless the ticket is still pending: the lock was let go in
    /// between, and what is open by now may be another connection.
    virtual Status performRead(ADMTransferTicket& ticket);
    virtual Status performWrite(ADMTransferTicket& ticket);
    /// Ends the document under the same rules; the ticket has no bytes. This one has nothing to do: success.
    virtual Status performFinishWriting(ADMTransferTicket& ticket);
    /// Whether a thread of the subclass's own serves asynchronous requests; the worker is then never started here. It
    /// may be the worker's own, started in `performOpen`.
    [[nodiscard]] virtual bool hasPrivateAsyncThread() const;

    /// Called with the lock held after a request was made for a thread that is already serving: wakes it. It may serve
    /// the request on the spot, here on the caller's thread.
    virtual void requestArrived(ADMTransferTicket& ticket);

    /// Starts the worker and waits for its word; true when it serves. For a `performOpen` whose worker has to run from
    /// the beginning; `start` alone will do, then the first request waits for the word.
    [[nodiscard]] bool startWorker();
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

    std::uintptr_t threadEntry() final;
    [[nodiscard]] const char* threadName() const noexcept override;

private:
    friend class ADMDuplexDataChannelBase; // opens with its lock held
    using Step = Status (ADMConnectionProvider::*)(ADMTransferTicket&);
    enum class Handing { toTheServingThread, never };

    [[nodiscard]] static ADMTransferTicket* toServe(ADMTransferTicket* ticket) noexcept;
    Status openHolding(Lock& held);
    Status closeHolding(Lock& held);
    [[nodiscard]] Status admitRequest(Lock& held, ADMTransferTicket* const& pending);
    [[nodiscard]] Status submit(Lock& held, ADMTransferTicket*& pending, ADMTransferTicket& ticket);
    Status transfer(Lock& held, ADMTransferTicket*& pending, ADMTransferTicket& ticket, Step perform,
                    Handing handing = Handing::toTheServingThread);
    [[nodiscard]] Status waitForEnd(Lock& held, ADMTransferTicket& ticket);
    [[nodiscard]] bool isWorkerLeaving() const;
    [[nodiscard]] bool isServed();
    void awaitEndOfWorker(Lock& held);
    void workerEnded();
    void abandon(ADMTransferTicket* ticket);
    void forgetRead();

    const std::weak_ptr<ADMDuplexDataChannelBase> parent_;
    const std::shared_ptr<ADMCoreModelInfo> modelInfo_;
    const std::shared_ptr<IDMDevice> device_;
    const std::shared_ptr<dmf::CourteousLock> lock_;
    const std::unique_ptr<dmf::internal::WorkerStage> worker_;
    std::atomic<std::uint32_t> maxReadPacketSize_{0};
    std::atomic<std::uint32_t> maxWritePacketSize_{0};
    ADMTransferTicket asyncRead_; // this and the following guarded by lock_
    ADMTransferTicket asyncWrite_;
    ADMTransferTicket* readTicket_ = nullptr;  // null: free
    ADMTransferTicket* writeTicket_ = nullptr; // null: free
    int closesUnderWay_ = 0;
};
