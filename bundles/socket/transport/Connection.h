#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <dmf/TransportConnection.h>

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

/// One TCP connection. Statuses: `peerEnded` when the device sends no more, after all bytes that did arrive; `failed`
/// when the connection is reset or lost. The end of a document is the end of the stream.
class Connection final : public TransportConnection {
public:
    /// Empty when the program is short of descriptors. `use` is kept as long as the connection.
    [[nodiscard]] static std::shared_ptr<Connection> over(FileDescriptor socket, std::shared_ptr<void> use = nullptr);
    Connection(FileDescriptor socket, std::shared_ptr<void> use);

    [[nodiscard]] Progress read(std::span<std::uint8_t> space) override;
    [[nodiscard]] Progress write(std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::optional<Status> finishWriting() override;
    void wait(const Wait& wait) override;
    void wake() noexcept override;

protected:
    /// Sends the end, and takes in what the peer still says, for a quarter of a second at most. Closing with unread
    /// bytes would reset the connection, and the device would lose the end of what it was sent.
    void disconnect() noexcept override;

private:
    [[nodiscard]] Status failure() noexcept;

    const FileDescriptor socket_;
    const std::shared_ptr<void> use_;
    Signal endSignal_;
    Signal wakeSignal_;
    std::atomic<bool> isBroken_{false};
    std::atomic<bool> hasSent_{false};
    bool hasFinished_ = false; // of the writing thread
};

} // namespace dmf::socket
