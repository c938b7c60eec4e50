#include "LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

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
    return {status.st_ino, status.st_mtim};
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const noexcept { return descriptor_; }

private:
    int descriptor_;
};

} // namespace

Date LockFileIdentity::date() const
{
    return dateOf(modified.tv_sec, modified.tv_nsec);
}

std::optional<LockFileIdentity> lockFileAt(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0)
        return identityOf(status);
    if (errno != ENOENT)
        fail("cannot look at", path);
    return {};
}

std::optional<MadeLockFile> makeLockFile(const std::string& path)
{
    // Exclusive creation does not follow a link, not even one that leads nowhere.
    const int descriptor = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        if (errno != EEXIST)
            fail("cannot make", path);
        return {};
    }
    struct stat status {};
    ::fchmod(descriptor, 0666); // some file systems have no modes; the lock holds all the same
    ::fstat(descriptor, &status);
    return MadeLockFile{descriptor, identityOf(status)};
}

LockFileRemoval removeLockFile(const std::string& path, const LockFileIdentity& seen)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0 && errno == ENOENT)
        return LockFileRemoval::superseded;
    // What cannot be opened, a link for example, cannot be locked either; nobody made it as a lock.
    if (file.get() >= 0 && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        return LockFileRemoval::busy;
    struct stat opened {};
    if (file.get() >= 0 && (::fstat(file.get(), &opened) != 0 || !(identityOf(opened) == seen)))
        return LockFileRemoval::superseded;
    const auto current = lockFileAt(path);
    if (!current || !(*current == seen))
        return LockFileRemoval::superseded;
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        fail("cannot remove", path);
    return LockFileRemoval::removed;
}

void giveBackLockFile(const std::string& path, const LockFileIdentity& held)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (removeLockFile(path, held) != LockFileRemoval::busy)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // Whoever sits on the file for so long is not about to remove it, and it is ours to remove.
    const auto current = lockFileAt(path);
    if (current && *current == held && ::unlink(path.c_str()) != 0 && errno != ENOENT)
        fail("cannot remove", path);
}

std::optional<Date> lockFileBirth(const std::string& path)
{
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status) != 0)
        return {};
    const auto& time = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
    return dateOf(time.tv_sec, time.tv_nsec);
}

} // namespace dmf::internal
