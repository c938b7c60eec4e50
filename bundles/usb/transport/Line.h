#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include <dmf/TransportConnection.h>

#include "Claim.h"
#include "Transfers.h"

namespace dmf::usb {

/// One claimed interface and the transfers on it, from its opening to its giving back. The system's calls that may wait
/// are made on a thread of its own ("dmf-usb-io"), which keeps the line: if one of them never returns, thread and line
/// are left behind, and nobody else is held up.
///
///     opening ──claimed──► open ──shut──► shutting ──all transfers ended, interface given back──► over
///        └──────────refused, or shut────────────────────────────────────────────────────────────────┘
///
/// Thread-safe; one thread at a time sends, and one receives.
class Line : public std::enable_shared_from_this<Line> {
public:
    using Clock = std::chrono::steady_clock;
    using Progress = TransportConnection::Progress;
    using Status = TransportConnection::Status;
    enum class State { opening, open, shutting, over };

    Line(AttachedDevice device, Choice choice);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Starts the thread; false when there can be none.
    [[nodiscard]] bool start();
    /// Waits until it is open or over; ends early, with what it is by then, when `isGivenUp` says so.
    State awaitOpening(const std::function<bool()>& isGivenUp);
    /// Why it could not be opened.
    [[nodiscard]] Claim::Failure failure() const;
    [[nodiscard]] std::string reason() const;

    /// Takes back what is under way, gives the interface back, and waits for that, until the time.
    void shut(Clock::time_point until) noexcept;

    [[nodiscard]] Progress send(std::span<const std::uint8_t> bytes);
    [[nodiscard]] Progress receive(std::span<std::uint8_t> space);
    /// Takes back what was begun of the bytes given last; how many of them the device has taken beyond those told.
    [[nodiscard]] std::uint32_t withdraw(Clock::time_point until);
    void wait(const TransportConnection::Wait& wait);
    void wake() noexcept;
    /// Runs control requests on the open interface, on the calling thread; false unless it is open.
    [[nodiscard]] bool control(const std::function<void(const ControlTransfer& transfer, const Choice& choice)>& use);

private:
    /// What one direction has come to, beside its transfers.
    struct Course {
        Status status = ProviderStatus::success; ///< with which it has ended, once it has
        bool isHalted = false;                   ///< the halt is to be cleared as soon as nothing is under way
        bool wasHalted = false;                  ///< and nothing has moved since
    };

    void run();
    void serve();
    void handleEvents(std::chrono::milliseconds limit);
    void giveBack();
    void clearHalts(std::unique_lock<std::mutex>& held);
    void interrupt() noexcept;
    void setState(State state);
    /// Ends the course by how a transfer ended; what was begun behind it is taken back.
    void endBy(Course& course, Transfers& transfers, TransferEnd end);
    [[nodiscard]] bool canReceive() const;
    [[nodiscard]] bool mayReceiveNow() const;
    void beginReceiving();
    [[nodiscard]] bool isReady(const TransportConnection::Wait& wait) const;

    const AttachedDevice device_;
    const Choice choice_;
    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::mutex controlLock_;       // held while control requests are made; the claim stays for that time
    State state_ = State::opening; // this and the following guarded by lock_
    Claim::Failure failure_ = Claim::Failure::none;
    std::string reason_;
    std::unique_ptr<Claim> claim_;
    std::unique_ptr<Transfers> out_, in_;
    Course sending_, receiving_;
    std::size_t readOffset_ = 0; ///< how much of the oldest received transfer was handed on
    bool isReading_ = false;     ///< the client has asked for bytes
    Clock::time_point nextReceiving_{};
    int emptyAnswers_ = 0;
    std::uint32_t wakes_ = 0;
    bool hasSent_ = false;
    bool isGone_ = false; ///< unplugged
};

} // namespace dmf::usb
