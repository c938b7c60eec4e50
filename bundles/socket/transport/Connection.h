#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include "Endpoint.h"
#include "FileDescriptor.h"

namespace dmf::socket {

/// A descriptor that a waiting thread watches and that another thread makes ready.
class Signal {
public:
    Signal();
    void set() noexcept;
    void clear() noexcept;
    [[nodiscard]] int descriptor() const noexcept { return event_.get(); }
    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(event_); }

private:
    FileDescriptor event_;
};

/// One TCP connection. Nothing here waits but `wait` and `end`. Thread-safe, as far as the bytes of one direction are
/// moved by one thread at a time. The socket lives until the last user lets go of the object.
class Connection {
public:
    enum class Result {
        moved,      ///< at least one byte
        wouldBlock, ///< nothing can be moved now
        peerEnded,  ///< the peer sends no more
        broken,     ///< reset, unreachable, or ended by ourselves
    };

    explicit Connection(FileDescriptor socket);

    [[nodiscard]] Result receive(std::span<std::uint8_t> space, std::uint32_t& count) noexcept;
    [[nodiscard]] Result send(std::span<const std::uint8_t> bytes, std::uint32_t& count) noexcept;

    /// Waits until one of `events` (POLLIN, POLLOUT) has come up, `also` has been set, the connection has been ended,
    /// or the time has come; without a limit for none.
    void wait(short events, std::optional<Clock::time_point> until, const Signal* also = nullptr) const noexcept;

    /// Says good-bye: wakes everybody who waits, sends the end, and takes in what the peer still says, for a quarter of
    /// a second at most. Closing with unread bytes would reset the connection, and the device would lose the end of
    /// what it was sent.
    void end() noexcept;
    [[nodiscard]] bool isEnded() const noexcept { return isEnded_; }

private:
    [[nodiscard]] Result failure() noexcept;

    const FileDescriptor socket_;
    Signal endSignal_;
    std::atomic<bool> isEnded_{false};
    std::atomic<bool> isBroken_{false};
    std::atomic<bool> hasSent_{false};
};

} // namespace dmf::socket
