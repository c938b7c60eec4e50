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

Connection::Connection(FileDescriptor socket, std::shared_ptr<void> use)
    : socket_(std::move(socket)), use_(std::move(use))
{
}

std::shared_ptr<Connection> Connection::over(FileDescriptor socket, std::shared_ptr<void> use)
{
    auto made = std::make_shared<Connection>(std::move(socket), std::move(use));
    return made->endSignal_ && made->wakeSignal_ ? made : nullptr;
}

TransportConnection::Progress Connection::read(std::span<std::uint8_t> space)
{
    const auto received = ::recv(socket_.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (received > 0)
        return {static_cast<std::uint32_t>(received), ProviderStatus::success};
    if (received == 0)
        return {0, isBroken_ ? ProviderStatus::failed : ProviderStatus::peerEnded};
    return {0, failure()};
}

TransportConnection::Progress Connection::write(std::span<const std::uint8_t> bytes)
{
    const auto sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return {0, failure()};
    hasSent_.store(true, std::memory_order_relaxed);
    return {static_cast<std::uint32_t>(sent), ProviderStatus::success};
}

/// What errno says. The system tells of a break only once, to whichever direction asks first; afterwards a read gives
/// the end of the bytes, as if the peer had ended orderly. EPIPE is different: it comes when the peer did end before,
/// or when the break has been told.
TransportConnection::Status Connection::failure() noexcept
{
    if (isBlocked())
        return ProviderStatus::success;
    if (errno != EPIPE)
        isBroken_ = true;
    return ProviderStatus::failed;
}

/// What has been written is the system's by now, which sends the end behind it. Once the device has ended as well there
/// is nothing left to shut down.
std::optional<TransportConnection::Status> Connection::finishWriting()
{
    if (!hasFinished_ && ::shutdown(socket_.get(), SHUT_WR) != 0)
        return ProviderStatus::failed;
    hasFinished_ = true;
    return ProviderStatus::success;
}

void Connection::wait(const Wait& wait)
{
    const auto events = static_cast<short>((wait.reading ? POLLIN : 0) | (wait.writing ? POLLOUT : 0));
    pollfd watched[3] = {{socket_.get(), events, 0}, {endSignal_.descriptor(), POLLIN, 0}, {-1, POLLIN, 0}};
    if (events == 0)
        watched[0].fd = -1; // a peer that hung up would be reported for ever
    if (wait.waking)
        watched[2].fd = wakeSignal_.descriptor();
    const auto limit = wait.until ? timeFromNow(*wait.until) : timespec{};
    (void)::ppoll(watched, 3, wait.until ? &limit : nullptr, nullptr);
    if (watched[2].revents != 0)
        wakeSignal_.clear();
}

void Connection::wake() noexcept
{
    wakeSignal_.set();
}

void Connection::disconnect() noexcept
{
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
