#include <dmf/platform/FileHandle.h>

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>

namespace dmf {
namespace {

/// Keeps the calling thread from getting SIGPIPE; one that came about meanwhile is taken away again.
class PipeSignalGuard {
public:
    PipeSignalGuard()
    {
        sigset_t pending;
        sigpending(&pending);
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~PipeSignalGuard()
    {
        const timespec atOnce{};
        if (!wasPending_)
            while (sigtimedwait(&pipe_, nullptr, &atOnce) == -1 && errno == EINTR) {
            }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

private:
    bool wasPending_ = false;
    sigset_t pipe_;
    sigset_t before_;
};

using Clock = std::chrono::steady_clock;

/// How long a reader may leave a pipe, a socket or a non-blocking descriptor full.
constexpr auto kReadersPatience = std::chrono::seconds(1);

/// Whether the descriptor takes more by then, which signals do not put off. What is wrong with it the write tells.
bool becomesWritable(int descriptor, Clock::time_point end)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd watched{descriptor, POLLOUT, 0};
        const int ready = ::poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
        if (left <= 0)
            return false;
    }
}

/// Writes pieces of at most `piece` bytes; with `waits` each only once the descriptor takes one.
void writeAll(int descriptor, std::string_view bytes, std::size_t piece, bool waits)
{
    const std::size_t all = bytes.size();
    std::optional<Clock::time_point> end; // since the last progress
    while (!bytes.empty()) {
        if (waits && !end)
            end = Clock::now() + kReadersPatience;
        if (waits && !becomesWritable(descriptor, *end))
            throw ShortWrite(EAGAIN, all - bytes.size());
        const ssize_t written = ::write(descriptor, bytes.data(), std::min(bytes.size(), piece));
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            end.reset();
            continue;
        }
        const int error = written == 0 ? ENOSPC : errno;
        if (!end)
            end = Clock::now() + kReadersPatience;
        // A half written line would run into the next one.
        const bool isFull = error == EAGAIN && Clock::now() < *end && becomesWritable(descriptor, *end);
        if (!isFull && error != EINTR)
            throw ShortWrite(error, all - bytes.size());
    }
}

} // namespace

ShortWrite::ShortWrite(int error, std::size_t written)
    : std::system_error(error, std::generic_category(), "write"), written_(written)
{
}

ShortWrite::~ShortWrite() = default;

FileHandle::FileHandle(int descriptor) noexcept : descriptor_(descriptor), canSignal_(true)
{
    struct stat status {};
    canSignal_ = ::fstat(descriptor, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

FileHandle::~FileHandle()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

void FileHandle::writeData(std::string_view bytes)
{
    if (!canSignal_)
        return writeAll(descriptor_, bytes, bytes.size(), false);
    // Also a pipe that blocks takes a piece of this size at once when it takes anything.
    const PipeSignalGuard guard;
    writeAll(descriptor_, bytes, PIPE_BUF, true);
}

} // namespace dmf
