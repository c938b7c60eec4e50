#include <dmf/platform/FileHandle.h>

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

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

/// How long a reader may keep a descriptor full that its owner has made non-blocking.
constexpr int kPatienceInMilliseconds = 1000;

/// Whether the descriptor takes more within the time.
bool becomesWritable(int descriptor)
{
    pollfd watched{descriptor, POLLOUT, 0};
    return ::poll(&watched, 1, kPatienceInMilliseconds) > 0 && (watched.revents & POLLOUT) != 0;
}

void writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written > 0)
            bytes.remove_prefix(static_cast<std::size_t>(written));
        else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && becomesWritable(descriptor))
            continue; // a half written line would run into the next one
        else if (written == 0 || errno != EINTR)
            throw std::system_error(written == 0 ? ENOSPC : errno, std::generic_category(), "write");
    }
}

} // namespace

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
        return writeAll(descriptor_, bytes);
    const PipeSignalGuard guard;
    writeAll(descriptor_, bytes);
}

} // namespace dmf
