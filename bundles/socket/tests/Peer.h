#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "../transport/Endpoint.h"
#include "../transport/FileDescriptor.h"
#include "support/Stopwatch.h"

/// The far end of one connection, as a test's device plays it. Everything that waits ends when the test does.
class Conversation {
public:
    Conversation(dmf::socket::FileDescriptor socket, int end) : socket_(std::move(socket)), end_(end) {}

    /// False when the connection or the test ends first.
    bool send(std::string_view text)
    {
        while (!text.empty() && waitFor(POLLOUT)) {
            const auto sent = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent <= 0)
                return false;
            text.remove_prefix(static_cast<std::size_t>(sent));
        }
        return text.empty();
    }
    /// Exactly `size` bytes, or fewer when the channel ends.
    std::string receive(std::size_t size)
    {
        std::string text;
        while (text.size() < size && waitFor(POLLIN)) {
            char buffer[64 * 1024];
            const auto got = ::recv(socket_.get(), buffer, std::min(sizeof buffer, size - text.size()), 0);
            if (got <= 0)
                break;
            text.append(buffer, static_cast<std::size_t>(got));
        }
        return text;
    }
    std::string receiveAll() { return receive(std::string::npos); }
    /// Keeps the connection without a word until the test ends.
    void stayQuiet() { waitFor(0); }
    /// Drops the connection so that the other end is told of a reset.
    void reset()
    {
        const linger now{1, 0};
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        socket_ = dmf::socket::FileDescriptor();
    }
    void endSending() { ::shutdown(socket_.get(), SHUT_WR); }

private:
    bool waitFor(short events)
    {
        pollfd watched[2] = {{events ? socket_.get() : -1, events, 0}, {end_, POLLIN, 0}};
        return ::poll(watched, 2, -1) > 0 && watched[1].revents == 0;
    }

    dmf::socket::FileDescriptor socket_;
    int end_;
};

/// A listening device on loopback; every connection to it is played by `script` on a thread of its own.
class Peer {
public:
    using Script = std::function<void(Conversation&)>;

    explicit Peer(Script script, const char* address = "127.0.0.1", std::uint16_t port = 0, int family = AF_INET)
        : script_(std::move(script)), address_(address)
    {
        listener_ = dmf::socket::FileDescriptor(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_storage name{};
        socklen_t length = 0;
        if (family == AF_INET) {
            auto& ipv4 = reinterpret_cast<sockaddr_in&>(name);
            ipv4.sin_family = AF_INET;
            ipv4.sin_port = htons(port);
            ::inet_pton(AF_INET, address, &ipv4.sin_addr);
            length = sizeof ipv4;
        } else {
            auto& ipv6 = reinterpret_cast<sockaddr_in6&>(name);
            ipv6.sin6_family = AF_INET6;
            ipv6.sin6_port = htons(port);
            ::inet_pton(AF_INET6, address, &ipv6.sin6_addr);
            length = sizeof ipv6;
        }
        isListening_ = ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&name), length) == 0 &&
                       ::listen(listener_.get(), script_ ? 16 : 0) == 0;
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&name), &length);
        port_ = ntohs(family == AF_INET ? reinterpret_cast<sockaddr_in&>(name).sin_port
                                        : reinterpret_cast<sockaddr_in6&>(name).sin6_port);
        if (script_ && isListening_)
            accepting_ = std::thread([this] { acceptAll(); });
        else if (isListening_)
            fillQueue(name, length);
    }
    ~Peer()
    {
        const std::uint64_t one = 1;
        EXPECT_EQ(::write(end_.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
        if (accepting_.joinable())
            accepting_.join();
        for (auto& thread : conversations_)
            thread.join();
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// A device that never answers: connections to it are neither taken nor refused.
    static std::unique_ptr<Peer> silent(const char* address = "127.0.0.1", std::uint16_t port = 0)
    {
        return std::make_unique<Peer>(nullptr, address, port);
    }

    /// How many connections were taken so far.
    int taken() const { return taken_; }
    bool isListening() const { return isListening_; }
    std::uint16_t port() const { return port_; }
    dmf::socket::Endpoint endpoint() const { return {"", {address_}, port_}; }

private:
    void acceptAll()
    {
        while (true) {
            pollfd watched[2] = {{listener_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
            if (::poll(watched, 2, -1) < 0 || watched[1].revents != 0)
                return;
            dmf::socket::FileDescriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!socket)
                continue;
            ++taken_;
            auto conversation = std::make_shared<Conversation>(std::move(socket), end_.get());
            conversations_.emplace_back([this, conversation] { script_(*conversation); });
        }
    }
    /// Connects until the system lets further attempts hang.
    void fillQueue(const sockaddr_storage& name, socklen_t length)
    {
        for (int i = 0; i < 4; ++i) {
            dmf::socket::FileDescriptor socket(::socket(name.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            (void)::connect(socket.get(), reinterpret_cast<const sockaddr*>(&name), length);
            fillers_.push_back(std::move(socket));
        }
    }

    Script script_;
    std::string address_;
    dmf::socket::FileDescriptor listener_;
    dmf::socket::FileDescriptor end_{::eventfd(0, EFD_CLOEXEC)};
    bool isListening_ = false;
    std::atomic<int> taken_{0};
    std::uint16_t port_ = 0;
    std::thread accepting_;
    std::list<std::thread> conversations_;
    std::list<dmf::socket::FileDescriptor> fillers_;
};

/// A device that takes connections and says nothing.
inline void sayNothing(Conversation& far)
{
    far.stayQuiet();
}

/// A port of this machine on which nobody listens.
inline std::uint16_t unusedPort()
{
    Peer peer([](Conversation&) {});
    return peer.port();
}
