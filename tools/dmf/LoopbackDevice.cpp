#include "LoopbackDevice.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <list>
#include <system_error>
#include <utility>
#include <vector>

#include "Output.h"

namespace dmf::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadBlock = 64 * 1024;
constexpr std::size_t kMostClients = 64;
// A device that is slow, or reads nothing, has to be felt by the client, not hidden by the system's buffers.
constexpr int kSmallBuffer = 4096;

[[noreturn]] void fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
public:
    explicit Descriptor(int value = -1) noexcept : value_(value) {}
    ~Descriptor()
    {
        if (value_ >= 0)
            ::close(value_);
    }
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }
    [[nodiscard]] int get() const noexcept { return value_; }

private:
    int value_;
};

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Descriptor listenOn(std::uint16_t port, bool smallBuffer)
{
    Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (listener.get() < 0)
        fail("cannot make a socket");
    const int yes = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (smallBuffer) // before listening: the window is settled as a connection is made
        ::setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &kSmallBuffer, sizeof kSmallBuffer);
    const sockaddr_in address = loopback(port);
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail(("cannot use port " + std::to_string(port)).c_str());
    if (::listen(listener.get(), 16) != 0)
        fail("cannot listen");
    return listener;
}

} // namespace

struct LoopbackDevice::Client {
    Descriptor socket;
    std::string name;
    Clock::time_point start = Clock::now();
    std::uint64_t received = 0;
    std::string pendingAnswer;
    bool answered = false;
    bool sentAll = false; // by the client: it has closed its end
    std::string ended;    // why, once it has
};

struct LoopbackDevice::State {
    Behaviour behaviour;
    Report report;
    Descriptor listener;
    std::list<Client> clients;

    // How many bytes may be read from the client now.
    std::size_t allowance(const Client& client) const
    {
        std::uint64_t most = kReadBlock;
        if (behaviour.bytesPerSecond) {
            const std::chrono::duration<double> elapsed = Clock::now() - client.start;
            const auto due =
                static_cast<std::uint64_t>(elapsed.count() * static_cast<double>(*behaviour.bytesPerSecond));
            most = std::min(most, due > client.received ? due - client.received : 0);
        }
        if (behaviour.dropAfter)
            most = std::min(most, *behaviour.dropAfter - client.received);
        return static_cast<std::size_t>(most);
    }

    bool wantsToRead(const Client& client) const
    {
        return !behaviour.neverRead && !client.sentAll && allowance(client) > 0;
    }

    // Milliseconds until a client that is read slowly may be read again; -1 when none waits.
    int pause() const
    {
        const bool waiting = std::any_of(clients.begin(), clients.end(), [this](const Client& client) {
            return behaviour.bytesPerSecond && !behaviour.neverRead && !client.sentAll && allowance(client) == 0;
        });
        return waiting ? 20 : -1;
    }

    void accept()
    {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        Descriptor socket(
            ::accept4(listener.get(), reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0)
            return;
        Client client;
        client.socket = std::move(socket);
        client.name = "client " + std::to_string(ntohs(peer.sin_port));
        report(client.name + ": connected");
        clients.push_back(std::move(client));
        if (behaviour.dropAfter == 0u)
            drop(clients.back());
    }

    // With an abort, as a device does that loses its power: the client sees a reset.
    static void drop(Client& client)
    {
        const linger abort{1, 0};
        ::setsockopt(client.socket.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        client.ended = "dropped";
    }

    void read(Client& client)
    {
        static std::array<char, kReadBlock> buffer;
        const ssize_t got = ::recv(client.socket.get(), buffer.data(), allowance(client), 0);
        if (got < 0) {
            if (errno != EAGAIN && errno != EINTR)
                client.ended = "broken by the client";
            return;
        }
        if (got == 0) {
            client.sentAll = true;
            return;
        }
        client.received += static_cast<std::uint64_t>(got);
        if (!std::exchange(client.answered, true))
            client.pendingAnswer = behaviour.answer;
        if (behaviour.dropAfter && client.received >= *behaviour.dropAfter)
            drop(client);
    }

    static void answer(Client& client)
    {
        const ssize_t sent =
            ::send(client.socket.get(), client.pendingAnswer.data(), client.pendingAnswer.size(), MSG_NOSIGNAL);
        if (sent >= 0)
            client.pendingAnswer.erase(0, static_cast<std::size_t>(sent));
        else if (errno != EAGAIN && errno != EINTR)
            client.ended = "broken by the client";
    }

    pollfd interest(const Client& client) const
    {
        short events = 0;
        if (wantsToRead(client))
            events |= POLLIN;
        if (!client.pendingAnswer.empty())
            events |= POLLOUT;
        // Without any interest poll still tells of errors, which is all that a client that is never read can show.
        return {client.socket.get(), events, 0};
    }

    void serve(Client& client, short events)
    {
        if ((events & POLLIN) != 0)
            read(client);
        if (client.ended.empty() && (events & POLLOUT) != 0)
            answer(client);
        if (client.ended.empty() && (events & (POLLERR | POLLNVAL)) != 0)
            client.ended = "broken by the client";
        // POLLHUP alone: both directions are closed, though bytes can be left that a slow reader still takes.
        if (client.ended.empty() && (events & POLLHUP) != 0 && !behaviour.bytesPerSecond)
            client.ended = "closed";
        if (client.ended.empty() && client.sentAll && client.pendingAnswer.empty())
            client.ended = "closed";
    }
};

LoopbackDevice::LoopbackDevice(Behaviour behaviour, Report report) : state_(std::make_unique<State>())
{
    const bool smallBuffer = behaviour.neverRead || behaviour.bytesPerSecond;
    state_->listener = listenOn(behaviour.port, smallBuffer);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(state_->listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
        fail("cannot read the port");
    port_ = ntohs(address.sin_port);
    state_->behaviour = std::move(behaviour);
    state_->report = std::move(report);
}

LoopbackDevice::~LoopbackDevice() = default;

void LoopbackDevice::run(int stopDescriptor)
{
    State& state = *state_;
    std::vector<pollfd> sources;
    for (;;) {
        const short acceptable = state.clients.size() < kMostClients ? POLLIN : 0;
        sources.assign({{stopDescriptor, POLLIN, 0}, {state.listener.get(), acceptable, 0}});
        for (const auto& client : state.clients)
            sources.push_back(state.interest(client));
        if (::poll(sources.data(), sources.size(), state.pause()) < 0)
            continue;
        if (sources[0].revents != 0)
            return;
        auto source = sources.begin() + 2;
        for (auto& client : state.clients)
            state.serve(client, (source++)->revents);
        if (sources[1].revents != 0)
            state.accept();
        state.clients.remove_if([&state](const Client& client) {
            if (client.ended.empty())
                return false;
            state.report(client.name + ": " + client.ended + " after " + byteCount(client.received));
            return true;
        });
    }
}

} // namespace dmf::tool
