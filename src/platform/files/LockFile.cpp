#include "platform/files/LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
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
    return {status.st_dev, status.st_ino, status.st_mtim};
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

bool isLocked(int descriptor) noexcept
{
    return descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

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

/// Removes the file that the descriptor stands for. It is open, so its inode number goes to no other file meanwhile.
LockFileRemoval removeOpened(const std::string& path, int descriptor, const LockFileIdentity* seen)
{
    if (!isLocked(descriptor))
        return LockFileRemoval::busy;
    struct stat opened {};
    if (::fstat(descriptor, &opened) != 0 || (seen && !(identityOf(opened) == *seen)))
        return LockFileRemoval::superseded;
    const auto current = lockFileAt(path);
    return current && current->isSameFile(identityOf(opened)) ? unlinked(path) : LockFileRemoval::superseded;
}

/// Removes a link, which nobody made as a lock. The lock on the folder keeps a second remover from taking the winner's
/// new file for the link that both have seen.
LockFileRemoval removeLink(const std::string& path, const LockFileIdentity& seen)
{
    const auto folderPath = std::filesystem::path(path).parent_path() / ".";
    const Descriptor folder(::open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!isLocked(folder.get()))
        return LockFileRemoval::busy;
    return lockFileAt(path) == seen ? unlinked(path) : LockFileRemoval::superseded;
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
    if (lockFileAt(path) != seen)
        return LockFileRemoval::superseded;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0 && errno == ELOOP)
        return removeLink(path, seen);
    // What cannot be opened for another reason, for want of descriptors or of rights, cannot be removed safely.
    if (file.get() < 0)
        return errno == ENOENT ? LockFileRemoval::superseded : LockFileRemoval::busy;
    return removeOpened(path, file.get(), &seen);
}

bool giveBackLockFile(const std::string& path, const LockFileIdentity& held)
{
    return removeWithin100Milliseconds(path, [&] { return removeLockFile(path, held); });
}

bool giveBackLockFile(const std::string& path, int descriptor)
{
    return removeWithin100Milliseconds(path, [&] { return removeOpened(path, descriptor, nullptr); });
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
