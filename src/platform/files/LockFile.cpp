#include "platform/files/LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>

#include "platform/files/Files.h"
#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

[[noreturn]] void fail(const char* what, const std::string& path)
{
    throw std::system_error(errno, std::generic_category(), std::string(what) + " " + path);
}

Date dateOf(std::int64_t seconds, std::int64_t nanoseconds)
{
    return Date(static_cast<double>(seconds) + static_cast<double>(nanoseconds) * 1e-9);
}

LockFileIdentity identityOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino, status.st_mtim};
}

/// The advisory lock that whoever removes a lock file holds while it looks and removes.
class Claim {
public:
    /// `held` is the descriptor of the file's holder, -1 for everybody else.
    Claim(const std::string& path, int held)
    {
        if (held >= 0 && settle(held))
            return;
        // Network file systems want an exclusive lock on a file that is open for writing.
        for (const int access : {O_RDONLY, O_RDWR}) {
            open(path, access | O_NOFOLLOW);
            if (opened_ < 0)
                break;
            if (settle(opened_))
                return;
        }
        // Out of descriptors or of memory: later, perhaps. The folder is for what cannot be opened by its nature.
        isBusy_ = opened_ < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM);
        if (isBusy_)
            return;
        open(folderOf(path), O_RDONLY | O_DIRECTORY);
        if (opened_ >= 0)
            settle(opened_);
    }
    ~Claim()
    {
        if (locked_ >= 0)
            Host::current().lockFile(locked_, LOCK_UN); // the holder's descriptor stays open
        close();
    }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    [[nodiscard]] bool isBusy() const noexcept { return isBusy_; }

private:
    void close() noexcept
    {
        if (opened_ >= 0)
            ::close(opened_);
        opened_ = -1;
    }
    void open(const std::string& path, int flags)
    {
        close();
        opened_ = ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
    /// Whether it is decided: the lock is had, or somebody else has it; false where there are no such locks.
    bool settle(int descriptor)
    {
        if (Host::current().lockFile(descriptor, LOCK_EX | LOCK_NB) == 0) {
            locked_ = descriptor;
            return true;
        }
        const bool isUnknown =
            errno == EBADF || errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL;
        isBusy_ = !isUnknown;
        return isBusy_;
    }

    int opened_ = -1;
    int locked_ = -1;
    bool isBusy_ = false;
};

LockFileRemoval unlinked(const std::string& path)
{
    if (::unlink(path.c_str()) == 0)
        return LockFileRemoval::removed;
    switch (errno) {
    case ENOENT: return LockFileRemoval::superseded;
    case EPERM:
    case EACCES:
    case EISDIR:
    case EROFS: return LockFileRemoval::refused;
    default: fail("cannot remove", path);
    }
}

/// Removes what is at the path while `isIt` knows it. `held` as in Claim.
template <class IsIt>
LockFileRemoval removeIf(const std::string& path, int held, IsIt isIt)
{
    if (!isIt(LockFile::seenAt(path)))
        return LockFileRemoval::superseded;
    const Claim claim(path, held);
    if (claim.isBusy())
        return LockFileRemoval::busy;
    // Whoever had the claim before may have removed it, and somebody made another one since.
    return isIt(LockFile::seenAt(path)) ? unlinked(path) : LockFileRemoval::superseded;
}

template <class Remove>
bool removeWithin100Milliseconds(const std::string& path, Remove remove)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    auto result = remove();
    while (result == LockFileRemoval::busy && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        result = remove();
    }
    // Without the advisory lock the file at the path could be anybody's by the time it is removed, so it stays.
    if (result == LockFileRemoval::busy || result == LockFileRemoval::refused) {
        errno = result == LockFileRemoval::busy ? EBUSY : EPERM;
        fail("cannot remove", path);
    }
    return result == LockFileRemoval::removed;
}

std::string absolutePath(const std::string& path)
{
    std::error_code unknown; // the folder that the process is in may be gone; then the path stays as it is
    const auto absolute = std::filesystem::absolute(path, unknown);
    return unknown ? path : absolute.string();
}

std::int64_t forwardMicroseconds()
{
    return std::llround(Host::current().steadyNow() * 1e6);
}

std::string markText(const LockFileIdentity& file)
{
    return Host::current().bootIdentity() + ' ' + std::to_string(file.modified.tv_sec) + ' ' +
           std::to_string(file.modified.tv_nsec) + ' ' + std::to_string(forwardMicroseconds()) + '\n';
}

/// The time on the forward clock that the file's mark tells, if it bears one of this boot and of its present date.
std::optional<std::int64_t> markedTime(const std::string& path, const LockFileIdentity& seen)
{
    constexpr std::size_t longest = 256;
    const std::string& boot = Host::current().bootIdentity();
    const auto content = readRegularFile(path, longest, Links::refuse);
    if (!content || boot.empty())
        return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(content->data()), content->size());
    const std::string begin = markText(seen);
    const auto length = begin.rfind(' ') + 1;
    if (!text.starts_with(std::string_view(begin).substr(0, length)))
        return std::nullopt;
    std::int64_t time = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + length, end, time);
    return read.ec == std::errc() && read.ptr != end && *read.ptr == '\n' ? std::optional(time) : std::nullopt;
}

} // namespace

Date LockFileIdentity::date() const
{
    return dateOf(modified.tv_sec, modified.tv_nsec);
}

LockFile::LockFile(std::string path, int descriptor, Mark mark)
    : path_(std::move(path)), descriptor_(descriptor), mark_(mark)
{
}

LockFile::~LockFile()
{
    ::close(descriptor_);
}

std::unique_ptr<LockFile> LockFile::take(const std::string& path, Mark mark)
{
    std::string absolute = absolutePath(path);
    // Exclusive creation does not follow a link, not even one that leads nowhere.
    const int access = mark == Mark::none ? O_RDONLY : O_RDWR;
    const int descriptor = ::open(absolute.c_str(), O_CREAT | O_EXCL | O_CLOEXEC | access, 0666);
    if (descriptor < 0) {
        if (errno != EEXIST)
            fail("cannot make", absolute);
        return nullptr;
    }
    std::unique_ptr<LockFile> taken(new LockFile(std::move(absolute), descriptor, mark));
    ::fchmod(descriptor, 0666); // some file systems have no modes; the lock holds all the same
    taken->writeMark();
    return taken;
}

/// Dates the file now. Where the mark cannot be written, on a full disk for example, the date alone counts.
void LockFile::writeMark()
{
    struct stat status {};
    ::fstat(descriptor_, &status);
    identity_ = identityOf(status);
    if (mark_ == Mark::none)
        return;
    // What an earlier mark may leave behind the line end does not count.
    const std::string text = markText(identity_);
    const timespec dates[] = {status.st_atim, status.st_mtim}; // as the mark says
    if (::pwrite(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
        ::futimens(descriptor_, dates) == 0)
        return;
    ::fstat(descriptor_, &status);
    identity_ = identityOf(status);
}

bool LockFile::isUntouched() const
{
    return seenAt(path_) == identity_;
}

bool LockFile::renew()
{
    ::futimens(descriptor_, nullptr);
    writeMark();
    return isUntouched();
}

bool LockFile::giveBack()
{
    const auto isOurs = [this](const auto& seen) { return seen && seen->isSameFile(identity_); };
    return removeWithin100Milliseconds(path_, [&] { return removeIf(path_, descriptor_, isOurs); });
}

std::optional<LockFileIdentity> LockFile::seenAt(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0)
        return identityOf(status);
    if (errno != ENOENT)
        fail("cannot look at", path);
    return {};
}

double LockFile::age(const std::string& path, const LockFileIdentity& seen)
{
    if (const auto marked = markedTime(path, seen)) {
        const double age = static_cast<double>(forwardMicroseconds() - *marked) * 1e-6;
        if (age >= 0) // else somebody's whose clock has another start
            return age;
    }
    return Date::now().timeIntervalSince(seen.date());
}

LockFileRemoval LockFile::remove(const std::string& path, const LockFileIdentity& seen)
{
    return removeIf(path, -1, [&](const auto& present) { return present == seen; });
}

void LockFile::breakAt(const std::string& path)
{
    if (const auto seen = seenAt(path))
        removeWithin100Milliseconds(path, [&] { return remove(path, *seen); });
}

std::optional<Date> LockFile::birth(const std::string& path)
{
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status) != 0)
        return {};
    const auto& time = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
    return dateOf(time.tv_sec, time.tv_nsec);
}

} // namespace dmf::internal
