#include "Connect.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace dmf::socket {

namespace {
constexpr std::chrono::milliseconds kAttemptDelay{250};

timespec timeUntil(Clock::time_point then, Clock::time_point now)
{
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(std::max(then - now, Clock::duration()));
    return {static_cast<time_t>(left.count() / 1'000'000'000), static_cast<long>(left.count() % 1'000'000'000)};
}

/// Two ends of one socket: while nobody listens on a port of this machine, an attempt to reach it can meet itself.
bool isConnectedToItself(int socket)
{
    Address near, far;
    near.length = far.length = sizeof(sockaddr_storage);
    return ::getsockname(socket, reinterpret_cast<sockaddr*>(&near.storage), &near.length) == 0 &&
           ::getpeername(socket, reinterpret_cast<sockaddr*>(&far.storage), &far.length) == 0 && near == far;
}

/// Attempts to reach the addresses of one endpoint, several at a time.
class Race {
public:
    explicit Race(const std::vector<Address>& addresses) : addresses_(addresses) {}

    Connected run(Clock::time_point deadline, const CancelQuestion& isCancelled)
    {
        auto askAgain = Clock::now() + kCancelInterval;
        while (true) {
            auto now = Clock::now();
            if (now >= deadline)
                return {Outcome::timedOut, {}, {}};
            if (now >= askAgain) {
                if (isCancelled && isCancelled())
                    return {Outcome::cancelled, {}, {}};
                askAgain = Clock::now() + kCancelInterval;
            }
            if (next_ < addresses_.size() && (attempts_.empty() || now >= nextStart_)) {
                start(now);
            } else if (attempts_.empty()) {
                return {isTimedOut_ ? Outcome::timedOut : Outcome::refused, {}, {}};
            } else {
                auto until = std::min(deadline, askAgain);
                if (next_ < addresses_.size())
                    until = std::min(until, nextStart_);
                wait(timeUntil(until, now));
            }
            if (winner_.outcome == Outcome::done)
                return std::move(winner_);
        }
    }

private:
    struct Attempt {
        FileDescriptor socket;
        const Address* address;
    };

    void start(Clock::time_point now)
    {
        const Address& address = addresses_[next_++];
        nextStart_ = Clock::time_point::min(); // after one that fails on the spot the next need not wait its turn
        FileDescriptor socket(::socket(address.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!socket)
            return;
        const auto* const target = reinterpret_cast<const sockaddr*>(&address.storage);
        if (::connect(socket.get(), target, address.length) == 0) {
            finish({std::move(socket), &address});
        } else if (errno == EINPROGRESS) {
            attempts_.push_back({std::move(socket), &address});
            nextStart_ = now + kAttemptDelay;
        }
    }

    void wait(const timespec& limit)
    {
        std::vector<pollfd> watched;
        for (const auto& attempt : attempts_)
            watched.push_back({attempt.socket.get(), POLLOUT, 0});
        if (::ppoll(watched.data(), watched.size(), &limit, nullptr) <= 0)
            return;
        for (std::size_t i = watched.size(); i-- > 0;) {
            if (watched[i].revents == 0)
                continue;
            auto attempt = std::move(attempts_[i]);
            attempts_.erase(attempts_.begin() + static_cast<std::ptrdiff_t>(i));
            finish(std::move(attempt));
        }
    }

    void finish(Attempt attempt)
    {
        int problem = 0;
        socklen_t length = sizeof problem;
        const int socket = attempt.socket.get();
        if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &problem, &length) != 0 || problem != 0 ||
            isConnectedToItself(socket)) {
            isTimedOut_ = problem == ETIMEDOUT;
            nextStart_ = Clock::time_point::min();
            return;
        }
        winner_ = {Outcome::done, std::move(attempt.socket), attempt.address->text()};
    }

    const std::vector<Address>& addresses_;
    std::size_t next_ = 0;
    Clock::time_point nextStart_ = Clock::time_point::min();
    std::vector<Attempt> attempts_;
    bool isTimedOut_ = false;
    Connected winner_;
};
} // namespace

Connected connectTo(const Endpoint& endpoint, Clock::time_point deadline, const CancelQuestion& isCancelled)
{
    std::vector<Address> addresses;
    if (const auto outcome = findAddresses(endpoint, deadline, isCancelled, addresses); outcome != Outcome::done)
        return {outcome, {}, {}};
    auto connected = Race(addresses).run(deadline, isCancelled);
    if (connected.socket) {
        // Short commands and answers must not wait for each other, and a device that vanished must be noticed.
        const int on = 1;
        ::setsockopt(connected.socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        ::setsockopt(connected.socket.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    }
    return connected;
}

} // namespace dmf::socket
