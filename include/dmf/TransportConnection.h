#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include <dmf/ADMTransferTicket.h>
#include <dmf/ProviderStatus.h>
#include <dmf/platform/Export.h>

namespace dmf {

/// One connection of a transport, from its opening to its end: the whole of what a transport has to say about moving
/// bytes, beside how it connects (dmf::TransportProvider, which calls everything here).
///
///     connected ──end──► ended
///
/// Nothing but `wait` waits, and nothing calls back into the channel. Moving is called with and without the channel's
/// lock, reading on one thread and writing (or finishing) on another at the same time; `wait` on any number of threads
/// meanwhile; `wake` and `end` at any time. A library that can only block needs a thread of its own and a buffer in
/// between. The object lives until the last thread has let go of it, so what `read` works on is freed by the
/// destructor.
class DMF_EXPORT TransportConnection {
public:
    using Clock = ADMTransferTicket::Clock;
    using Status = std::int16_t;

    TransportConnection();
    virtual ~TransportConnection();
    TransportConnection(const TransportConnection&) = delete;
    TransportConnection& operator=(const TransportConnection&) = delete;

    /// What one attempt to move bytes came to. Nothing moved and `success`: nothing can be moved just now. Any other
    /// status ends the transfer, bytes moved with it count.
    struct Progress {
        std::uint32_t count = 0;
        Status status = ProviderStatus::success;
    };
    /// Moves what can be moved now. `bytes` is all that is left of what the client writes in one request. Time-outs,
    /// cancelling and the end of the connection are the caller's affair.
    [[nodiscard]] virtual Progress read(std::span<std::uint8_t> space) = 0;
    [[nodiscard]] virtual Progress write(std::span<const std::uint8_t> bytes) = 0;
    /// Takes back what was begun of the bytes given last and not told yet; how many of them the peer took all the same.
    /// Called when a write ends before all its bytes were told, whatever ended it. May wait for half a second. For
    /// transports that hand bytes over ahead; this one has nothing to take back.
    [[nodiscard]] virtual std::uint32_t withdrawWrite() noexcept;
    /// Ends the document that was written. Gives the status once that is done; nothing while it goes on: then it is
    /// called again after a wait for writing. This one has nothing to end.
    [[nodiscard]] virtual std::optional<Status> finishWriting();

    struct Wait {
        bool reading = false;
        bool writing = false; ///< or finishing
        bool waking = false;  ///< whether `wake` ends it
        std::optional<Clock::time_point> until;
    };
    /// Waits until bytes may be moved in one of the directions asked for, the time has come, or the connection has been
    /// ended. With `waking` also until `wake` is called; one that came since the last such wait counts. May return for
    /// nothing.
    virtual void wait(const Wait& wait) = 0;
    virtual void wake() noexcept = 0;

    /// Ends the connection, once: every wait is over, now and from here on, and nothing is moved any more.
    /// `documentIsWhole` is false when what was written is not to be taken for a document: the last write failed or was
    /// given up, or the channel was released without being closed.
    void end(bool documentIsWhole = true) noexcept;
    [[nodiscard]] bool isEnded() const noexcept { return isEnded_; }

protected:
    /// Has every wait end, and says good-bye to the device, for a second at most. Called once, when `isEnded` is
    /// true already. A transport of documents ends one that has not been finished, or takes it back when
    /// `documentIsWhole` is false.
    virtual void disconnect() noexcept = 0;
    /// As told with the end.
    [[nodiscard]] bool documentIsWhole() const noexcept { return documentIsWhole_; }

private:
    std::atomic<bool> isEnded_{false};
    std::atomic<bool> documentIsWhole_{true};
};

} // namespace dmf
