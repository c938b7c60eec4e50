#include "BlockReader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace dmf::tool {

namespace {

constexpr std::size_t kBlock = 64 * 1024;

} // namespace

struct BlockReader::State {
    int input;
    int wake = ::eventfd(0, EFD_CLOEXEC); // readable: a block is wanted, or the end
    std::shared_ptr<RunLoop> runLoop;
    Ready ready;
    std::shared_ptr<RunLoopSource> source;
    std::thread thread;
    std::atomic<bool> ended{false};

    std::mutex lock;
    Data block;        // guarded by lock
    std::string error; // guarded by lock

    void ask() const
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(wake, &one, sizeof one);
    }

    // Waits for input or the end; false for the end.
    bool waitForInput() const
    {
        for (;;) {
            pollfd sources[] = {{input, POLLIN, 0}, {wake, POLLIN, 0}};
            if (::poll(sources, 2, -1) < 0)
                continue;
            if (ended)
                return false;
            if (sources[0].revents != 0)
                return true;
        }
    }

    void readBlock()
    {
        std::vector<std::uint8_t> bytes(kBlock);
        ssize_t got = -1;
        do {
            got = ::read(input, bytes.data(), bytes.size());
        } while (got < 0 && errno == EINTR);
        const int problem = got < 0 ? errno : 0;
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        std::lock_guard guard(lock);
        block = Data(std::move(bytes));
        error = problem ? std::generic_category().message(problem) : "";
    }

    void run()
    {
        for (;;) {
            std::uint64_t wanted;
            [[maybe_unused]] const auto got = ::read(wake, &wanted, sizeof wanted);
            if (ended || !waitForInput())
                return;
            readBlock();
            source->signal();
            runLoop->wakeUp();
        }
    }

    void deliver()
    {
        Data delivered;
        std::string problem;
        {
            std::lock_guard guard(lock);
            delivered = std::exchange(block, {});
            problem = std::exchange(error, {});
        }
        ready(delivered, problem);
    }
};

BlockReader::BlockReader(int descriptor, std::shared_ptr<RunLoop> runLoop, Ready ready)
    : state_(std::make_unique<State>())
{
    State& state = *state_;
    if (state.wake < 0)
        throw std::system_error(errno, std::generic_category(), "cannot make an event");
    state.input = descriptor;
    state.runLoop = std::move(runLoop);
    state.ready = std::move(ready);
    state.source = RunLoopSource::create([&state] { state.deliver(); });
    state.runLoop->addSource(state.source, kDefaultRunLoopMode);
    state.thread = std::thread([&state] { state.run(); });
}

BlockReader::~BlockReader()
{
    state_->source->invalidate();
    state_->ended = true;
    state_->ask();
    state_->thread.join();
    ::close(state_->wake);
}

void BlockReader::next()
{
    state_->ask();
}

} // namespace dmf::tool
