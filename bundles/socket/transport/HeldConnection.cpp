#include "HeldConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <deque>
#include <thread>
#include <utility>

#include "BundleThread.h"
#include "Endpoint.h"

namespace dmf::socket {

namespace {
constexpr std::chrono::seconds kHoldTime{2};

/// Whether the device neither ended nor broke the connection.
bool isAlive(int socket)
{
    pollfd watched{socket, POLLIN | POLLRDHUP, 0};
    return ::poll(&watched, 1, 0) >= 0 && (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0;
}

/// Ends the connection in order. What the device has said is taken in: closing with unread bytes would be a reset.
void hangUp(const FileDescriptor& socket)
{
    if (!socket)
        return;
    ::shutdown(socket.get(), SHUT_WR);
    std::uint8_t scrap[4096];
    for (int i = 0; i < 64 && ::recv(socket.get(), scrap, sizeof scrap, MSG_DONTWAIT) > 0; ++i) {
    }
}
} // namespace

class HeldConnection::Slot {
public:
    explicit Slot(FileDescriptor socket) : socket_(std::move(socket)) {}
    ~Slot() { hangUp(socket_); }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    [[nodiscard]] FileDescriptor take()
    {
        std::lock_guard guard(lock_);
        return std::exchange(socket_, FileDescriptor());
    }
    [[nodiscard]] bool stands()
    {
        std::lock_guard guard(lock_);
        return socket_ && isAlive(socket_.get());
    }

private:
    std::mutex lock_;
    FileDescriptor socket_; // guarded by lock_
};

namespace {
/// Hangs up what nobody took, on a thread that runs while there is something to wait for.
class Clearing {
public:
    /// False when there is no thread for it.
    bool add(const std::shared_ptr<HeldConnection::Slot>& slot)
    {
        std::lock_guard guard(lock_);
        if (!isRunning_)
            isRunning_ = startThread("dmf-held", [this] { run(); });
        if (isRunning_)
            due_.push_back({Clock::now() + kHoldTime, slot});
        return isRunning_;
    }

private:
    struct Due {
        Clock::time_point time;
        std::weak_ptr<HeldConnection::Slot> slot;
    };

    void run()
    {
        std::unique_lock held(lock_);
        while (!due_.empty()) { // the first is due first, since all are held for the same time
            const auto next = due_.front();
            held.unlock();
            std::this_thread::sleep_until(next.time);
            if (const auto slot = next.slot.lock())
                hangUp(slot->take());
            held.lock();
            due_.pop_front();
        }
        isRunning_ = false;
    }

    std::mutex lock_;
    std::deque<Due> due_;    // guarded by lock_
    bool isRunning_ = false; // guarded by lock_
};

Clearing& clearing()
{
    static auto* const shared = new Clearing; // its thread may still run as the process ends
    return *shared;
}
} // namespace

HeldConnection::HeldConnection() = default;

HeldConnection::~HeldConnection() = default;

std::shared_ptr<HeldConnection::Slot> HeldConnection::exchange(std::shared_ptr<Slot> slot)
{
    std::lock_guard guard(lock_);
    slot_.swap(slot);
    return slot;
}

void HeldConnection::keep(FileDescriptor socket)
{
    auto slot = std::make_shared<Slot>(std::move(socket));
    if (clearing().add(slot))
        (void)exchange(std::move(slot));
}

FileDescriptor HeldConnection::take()
{
    const auto slot = exchange(nullptr);
    if (!slot)
        return {};
    auto socket = slot->take();
    if (socket && isAlive(socket.get()))
        return socket;
    hangUp(socket);
    return {};
}

bool HeldConnection::stands()
{
    std::shared_ptr<Slot> slot;
    {
        std::lock_guard guard(lock_);
        slot = slot_;
    }
    return slot && slot->stands();
}

} // namespace dmf::socket
