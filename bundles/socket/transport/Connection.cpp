#include "Connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace dmf::socket {

namespace {
constexpr std::chrono::milliseconds kFarewell{250};

timespec timeFromNow(Clock::time_point then)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::max(then - Clock::now(), Clock::duration()));
    return {static_cast<time_t>(left.count() / 1'000'000'000), static_cast<long>(left.count() % 1'000'000'000)};
}

bool isBlocked()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}
} // namespace

Signal::Signal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Signal::set() noexcept
{
    const std::uint64_t one = 1;
    // It can only fail when it is set more often than anybody counts.
    [[maybe_unused]] const auto written = ::write(event_.get(), &one, sizeof one);
}

void Signal::clear() noexcept
{
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(event_.get(), &count, sizeof count);
}

Connection::Connection(FileDescriptor socket) : socket_(std::move(socket)) {}

Connection::Result Connection::receive(std::span<std::uint8_t> space, std::uint32_t& count) noexcept
{
    count = 0;
    if (isEnded_)
        return Result::broken;
    const auto received = ::recv(socket_.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (received > 0) {
        count = static_cast<std::uint32_t>(received);
        return Result::moved;
    }
    if (received == 0)
        return isEnded_ || isBroken_ ? Result::broken : Result::peerEnded;
    return failure();
}

/// What errno says. The system tells of a break only once, to whichever direction asks first; afterwards a read gives
/// the end of the bytes, as if the peer had ended orderly. EPIPE is different: it comes when the peer did end before,
/// or when the break has been told.
Connection::Result Connection::failure() noexcept
{
    if (isBlocked())
        return Result::wouldBlock;
    if (errno != EPIPE)
        isBroken_ = true;
    return Result::broken;
}

Connection::Result Connection::send(std::span<const std::uint8_t> bytes, std::uint32_t& count) noexcept
{
    count = 0;
    if (isEnded_)
        return Result::broken;
    const auto sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) {
        hasSent_.store(true, std::memory_order_relaxed);
        count = static_cast<std::uint32_t>(sent);
        return Result::moved;
    }
    return failure();
}

void Connection::wait(short events, std::optional<Clock::time_point> until, const Signal* also) const noexcept
{
    pollfd watched[3] = {{socket_.get(), events, 0}, {endSignal_.descriptor(), POLLIN, 0}, {-1, POLLIN, 0}};
    if (events == 0)
        watched[0].fd = -1; // a peer that hung up would be reported for ever
    if (also)
        watched[2].fd = also->descriptor();
    const auto limit = until ? timeFromNow(*until) : timespec{};
    (void)::ppoll(watched, 3, until ? &limit : nullptr, nullptr);
}

void Connection::end() noexcept
{
    if (isEnded_.exchange(true))
        return;
    endSignal_.set();
    ::shutdown(socket_.get(), SHUT_WR);
    const auto until = Clock::now() + (hasSent_ ? kFarewell : std::chrono::milliseconds(0));
    std::uint8_t scrap[16 * 1024];
    while (true) {
        const auto received = ::recv(socket_.get(), scrap, sizeof scrap, MSG_DONTWAIT);
        if (received == 0 || (received < 0 && !isBlocked()))
            return;
        if (Clock::now() >= until)
            return;
        if (received < 0) {
            pollfd watched{socket_.get(), POLLIN, 0};
            const auto limit = timeFromNow(until);
            (void)::ppoll(&watched, 1, &limit, nullptr);
        }
    }
}

} // namespace dmf::socket
