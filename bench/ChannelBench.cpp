// Bytes through a channel of the socket transport on loopback, beside plain send and recv with the same block size.
// Every pair runs against the same kind of peer: a thread that sends or swallows as fast as it can.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/RunLoop.h>

namespace {
enum class Role { swallows, sends };

/// A listener whose connections are all swallowed from, or sent to, until they end.
class Peer {
public:
    explicit Peer(Role role) : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof name;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&name), length) != 0 || ::listen(listener_, 8) != 0)
            throw std::runtime_error("cannot listen");
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&name), &length);
        address_ = name;
        thread_ = std::thread([this, role] { acceptAll(role); });
    }
    ~Peer()
    {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    const sockaddr_in& address() const { return address_; }

private:
    void acceptAll(Role role)
    {
        std::vector<std::uint8_t> buffer(256 * 1024);
        while (true) {
            const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0)
                return;
            ssize_t moved = 1;
            while (moved > 0)
                moved = role == Role::sends ? ::send(socket, buffer.data(), buffer.size(), MSG_NOSIGNAL)
                                            : ::recv(socket, buffer.data(), buffer.size(), 0);
            ::close(socket);
        }
    }

    int listener_;
    sockaddr_in address_{};
    std::thread thread_;
};

class PlainSocket {
public:
    explicit PlainSocket(const Peer& peer) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const auto& name = peer.address();
        if (::connect(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
            throw std::runtime_error("cannot connect");
    }
    ~PlainSocket() { ::close(socket_); }
    PlainSocket(const PlainSocket&) = delete;
    PlainSocket& operator=(const PlainSocket&) = delete;
    int get() const { return socket_; }

private:
    int socket_;
};

/// An open channel, made as a program makes it: from a URI.
std::shared_ptr<ADMDuplexDataChannel> openChannel(const Peer& peer)
{
    const auto uri = "socket://127.0.0.1:" + std::to_string(ntohs(peer.address().sin_port)) + "/?vendor=QL&product=P";
    const auto info = ADMServiceInfoImp::serviceInfoWithURI(uri, std::string(kPrinterDeviceClass));
    const auto channel = ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(info, "Print");
    if (!channel)
        throw std::runtime_error("no socket transport");
    channel->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    if (!channel->open())
        throw std::runtime_error("cannot open the channel");
    return channel;
}

void count(benchmark::State& state, std::int64_t bytes)
{
    state.SetBytesProcessed(bytes);
}

void plainSend(benchmark::State& state)
{
    Peer peer(Role::swallows);
    PlainSocket socket(peer);
    const std::vector<std::uint8_t> block(static_cast<std::size_t>(state.range(0)));
    std::int64_t bytes = 0;
    for (auto _ : state)
        bytes += ::send(socket.get(), block.data(), block.size(), MSG_NOSIGNAL);
    count(state, bytes);
}

void channelWrite(benchmark::State& state)
{
    Peer peer(Role::swallows);
    const auto channel = openChannel(peer);
    const dmf::Data block(std::vector<std::uint8_t>(static_cast<std::size_t>(state.range(0))));
    std::int64_t bytes = 0;
    for (auto _ : state)
        if (channel->writeData(block, 60, nullptr))
            bytes += state.range(0);
    count(state, bytes);
}

void channelWriteAsync(benchmark::State& state)
{
    Peer peer(Role::swallows);
    const auto channel = openChannel(peer);
    const dmf::Data block(std::vector<std::uint8_t>(static_cast<std::size_t>(state.range(0))));
    // One iteration is one block: the next is scheduled as soon as the delegate hears of the last.
    constexpr std::int64_t kBatch = 256;
    const auto loop = dmf::RunLoop::current();
    const auto delegate = std::make_shared<ADMDuplexDataChannelDelegate>();
    std::int64_t left = 0;
    delegate->didFinishWriteData = [&](ADMDuplexDataChannel& it) {
        if (--left > 0)
            it.scheduleWriteData(block, 60);
        else
            loop->stop();
    };
    channel->setDelegate(delegate);
    std::int64_t bytes = 0;
    while (state.KeepRunningBatch(kBatch)) {
        left = kBatch;
        channel->scheduleWriteData(block, 60);
        while (left > 0)
            loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(60));
        bytes += kBatch * state.range(0);
    }
    count(state, bytes);
}

void plainRecv(benchmark::State& state)
{
    Peer peer(Role::sends);
    PlainSocket socket(peer);
    std::vector<std::uint8_t> block(static_cast<std::size_t>(state.range(0)));
    std::int64_t bytes = 0;
    for (auto _ : state)
        bytes += ::recv(socket.get(), block.data(), block.size(), 0);
    count(state, bytes);
}

void channelRead(benchmark::State& state)
{
    Peer peer(Role::sends);
    const auto channel = openChannel(peer);
    std::vector<std::uint8_t> block(static_cast<std::size_t>(state.range(0)));
    std::int64_t bytes = 0;
    for (auto _ : state)
        bytes += channel->readDataToBuffer(block, 60, nullptr);
    count(state, bytes);
}

void plainRecvAll(benchmark::State& state)
{
    Peer peer(Role::sends);
    PlainSocket socket(peer);
    std::vector<std::uint8_t> block(static_cast<std::size_t>(state.range(0)));
    std::int64_t bytes = 0;
    for (auto _ : state)
        bytes += ::recv(socket.get(), block.data(), block.size(), MSG_WAITALL);
    count(state, bytes);
}

void channelReadAsync(benchmark::State& state)
{
    Peer peer(Role::sends);
    const auto channel = openChannel(peer);
    constexpr std::int64_t kBatch = 256;
    const auto loop = dmf::RunLoop::current();
    const auto delegate = std::make_shared<ADMDuplexDataChannelDelegate>();
    const auto size = static_cast<std::uint32_t>(state.range(0));
    std::int64_t left = 0, bytes = 0;
    delegate->didReadDataBlock = [&](ADMDuplexDataChannel&, const dmf::Data& block) {
        bytes += static_cast<std::int64_t>(block.size());
    };
    delegate->didFinishReadData = [&](ADMDuplexDataChannel& it) {
        if (--left > 0)
            it.scheduleReadDataOfLength(size, 60);
        else
            loop->stop();
    };
    channel->setDelegate(delegate);
    while (state.KeepRunningBatch(kBatch)) {
        left = kBatch;
        channel->scheduleReadDataOfLength(size, 60);
        while (left > 0)
            loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(60));
    }
    count(state, bytes);
}

/// Whatever comes, block by block, until as many bytes have been told as the iterations stand for.
void channelStream(benchmark::State& state)
{
    Peer peer(Role::sends);
    const auto channel = openChannel(peer);
    constexpr std::int64_t kBatch = 64;
    const auto loop = dmf::RunLoop::current();
    const auto delegate = std::make_shared<ADMDuplexDataChannelDelegate>();
    std::int64_t wanted = 0, bytes = 0;
    delegate->didReadDataBlock = [&](ADMDuplexDataChannel&, const dmf::Data& block) {
        bytes += static_cast<std::int64_t>(block.size());
        if (bytes >= wanted)
            loop->stop();
    };
    channel->setDelegate(delegate);
    channel->scheduleReadDataWithTimeout(1800);
    while (state.KeepRunningBatch(kBatch)) {
        wanted += kBatch * state.range(0);
        while (bytes < wanted)
            loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(60));
    }
    count(state, bytes);
}

constexpr auto sizes = [](benchmark::internal::Benchmark* it) {
    it->Arg(1 << 10)->Arg(16 << 10)->Arg(64 << 10)->Arg(256 << 10)->Arg(1 << 20)->UseRealTime();
};
BENCHMARK(plainSend)->Apply(sizes);
BENCHMARK(channelWrite)->Apply(sizes);
BENCHMARK(channelWriteAsync)->Apply(sizes);
BENCHMARK(plainRecv)->Apply(sizes);
BENCHMARK(channelRead)->Apply(sizes);
BENCHMARK(plainRecvAll)->Apply(sizes);
BENCHMARK(channelReadAsync)->Apply(sizes);
BENCHMARK(channelStream)->Arg(64 << 10)->UseRealTime();
} // namespace

BENCHMARK_MAIN();
