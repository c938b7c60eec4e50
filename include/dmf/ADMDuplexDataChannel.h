#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMDuplexDataChannel;
class ADMServiceInfo;

namespace dmf {

/// What a channel says of a failed operation, under kDMErrorCode of its error record.
enum class ChannelError : std::int32_t {
    none = 0,
    timedOut = 1,
    invalidArgument = 2, ///< nothing to move, or a negative time-out
    notOpen = 3,
    busy = 4,      ///< a transfer of that direction is pending already
    peerEnded = 5, ///< the transport's status -53; the socket transport: the device sends no more, writing may go on
    failed = 6,    ///< anything else
    cancelled = 7, ///< the transport's status -200; the socket transport: the client asked to give up
};

} // namespace dmf

/// What a channel tells its client. Each may be empty; none is changed while the delegate is set. Owned by the client,
/// held weakly by the channel.
///
/// Results arrive on the run loops in which the channel is scheduled, in the order in which they arose; a channel
/// scheduled nowhere tells nothing. An error record holds kDMErrorCode (a dmf::ChannelError) and kDMDataChannelState
/// (1 for a read, 2 for a write).
struct ADMDuplexDataChannelDelegate {
    std::function<void(ADMDuplexDataChannel& channel, const dmf::Data& block)> didReadDataBlock;
    std::function<void(ADMDuplexDataChannel& channel, std::uint32_t length)> didWriteDataBlockOfLength;
    std::function<void(ADMDuplexDataChannel& channel)> didFinishReadData;
    std::function<void(ADMDuplexDataChannel& channel)> didFinishWriteData;
    /// A request that is refused at once is told on the caller's thread, inside the call that made it.
    std::function<void(ADMDuplexDataChannel& channel, const dmf::Dictionary& error)> didFailWithError;
    /// Asked about ten times a second while a transfer waits, on whichever thread does the transfer (the channel's own
    /// thread for asynchronous ones); true ends the transfer. A std::exception counts as false. When empty, the answer
    /// is whether a close has been asked for. Must not wait for a thread that may be inside a call of the channel.
    std::function<bool(ADMDuplexDataChannel& channel)> shouldCancelRead;
    std::function<bool(ADMDuplexDataChannel& channel)> shouldCancelWrite;
};

/// A client's two-way pipe of bytes to one named channel ("Print", "Scan", ...) of a device service. Thread-safe.
///
/// Time-outs are in seconds: negative ones are invalid arguments, 1800 and more (and NaN) mean none. One read and one
/// write can be under way at the same time; a second of the same direction is refused (dmf::ChannelError::busy).
/// The last reference may go anywhere, in a delegate call too; it closes the channel.
///
/// While one thread opens the channel, every operation waits until it has connected or given up (the socket transport:
/// fifteen seconds at most), save `close`, which makes it give up, and those that read or set `serviceInfo`, `name` and
/// `delegate`.
class DMF_EXPORT ADMDuplexDataChannel {
public:
    using Factory = std::shared_ptr<ADMDuplexDataChannel>(std::shared_ptr<ADMServiceInfo> serviceInfo,
                                                          std::string channelName);
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMDuplexDataChannel();

    [[nodiscard]] virtual std::shared_ptr<ADMServiceInfo> serviceInfo() const = 0;
    [[nodiscard]] virtual std::string name() const = 0;
    [[nodiscard]] std::string channelName() const { return name(); }
    /// The most bytes that the transport moves at once; 0 while the channel is closed.
    [[nodiscard]] virtual std::uint32_t maxReadPacketSize() const = 0;
    [[nodiscard]] virtual std::uint32_t maxWritePacketSize() const = 0;

    /// Connects to the device; true when the channel is open afterwards (also when it was open before). Results that
    /// have not been told yet are dropped, those of transfers under way on a channel that was open included. Blocks for
    /// as long as the transport looks for the device, unless the service has it already, and connects. A `close` on
    /// another thread makes it give false; it ends the connecting early, the search for the device runs its course.
    /// False as well while another thread's `close` waits for the transport.
    [[nodiscard]] virtual bool open() = 0;
    /// Ends the connection and every transfer, asynchronous ones without a word. The channel can be opened again.
    /// Blocks until the transport has let go, less than a second.
    virtual void close() = 0;
    /// False as soon as `close` has been called.
    [[nodiscard]] virtual bool isOpened() const = 0;

    [[nodiscard]] virtual std::shared_ptr<ADMDuplexDataChannelDelegate> delegate() const = 0;
    virtual void setDelegate(const std::shared_ptr<ADMDuplexDataChannelDelegate>& delegate) = 0;
    /// Results are delivered on `runLoop` while it serves `mode`. Ignored without a run loop.
    virtual void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) = 0;
    virtual void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) = 0;

    /// Asynchronous transfers: true when the request was taken; everything further comes through the delegate.
    /// A refusal is told to the delegate before the call returns.
    ///
    /// Writes all of `data`; progress is told in blocks.
    virtual bool scheduleWriteData(const dmf::Data& data, double timeout) = 0;
    /// Reads exactly `length` bytes, told in blocks as they arrive.
    virtual bool scheduleReadDataOfLength(std::uint32_t length, double timeout) = 0;
    /// Reads whatever comes, in blocks of up to maxReadPacketSize, until the time-out or another failure ends it.
    virtual bool scheduleReadDataWithTimeout(double timeout) = 0;

    /// Synchronous transfers block until they are done, the time-out has passed, or the channel is closed. On failure
    /// `error`, unless null, receives the record; it tells under kDMDataChannelProcessedDataLength how many bytes were
    /// moved, if the transfer had begun. A failure other than a time-out, `peerEnded` and `cancelled` closes the
    /// connection, unless an asynchronous transfer was scheduled since it was opened: then it stays, and what is asked
    /// of it fails, until `close`.
    ///
    /// Writes all of `data`.
    virtual bool writeData(const dmf::Data& data, double timeout, dmf::Dictionary* error) = 0;
    /// Appends exactly `length` bytes to `data`; on failure those that did arrive.
    virtual bool readDataOfLength(dmf::Data& data, std::uint32_t length, double timeout, dmf::Dictionary* error) = 0;
    /// Appends the bytes that arrive first, at most `length`; at least one is a success.
    virtual bool readDataUpToLength(dmf::Data& data, std::uint32_t length, double timeout, dmf::Dictionary* error) = 0;
    /// The same into the caller's memory; gives the number of bytes, 0 on failure.
    virtual std::uint32_t readDataToBuffer(std::span<std::uint8_t> buffer, double timeout, dmf::Dictionary* error) = 0;

    /// Says that what was written is a whole document, and waits until the transport has ended it. How, is the
    /// transport's affair: the socket transport sends the end of the stream, after which nothing can be written but
    /// answers can still be read; many have nothing to do, as this one. Like a write as to time-out, errors and what
    /// they close; `busy` while a write is pending.
    virtual bool finishWriting(double timeout, dmf::Dictionary* error);
};
