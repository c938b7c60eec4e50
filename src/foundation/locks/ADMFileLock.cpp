#include <dmf/ADMFileLock.h>

#include <unistd.h>

#include <system_error>

#include <dmf/DMLog.h>

#include "platform/files/Files.h"
#include "platform/files/LockFile.h"

std::shared_ptr<ADMFileLock> ADMFileLock::initWithPath(std::string_view path)
{
    std::string kept(path);
    if (kept.empty() || kept.find('\0') != std::string::npos || dmf::internal::isFolder(kept) ||
        !dmf::internal::isFolder(dmf::internal::folderOf(kept)))
        return nullptr;
    return std::make_shared<ADMFileLock>(Passkey(), std::move(kept));
}

ADMFileLock::ADMFileLock(Passkey, std::string path) : path_(std::move(path)) {}

ADMFileLock::~ADMFileLock()
{
    unlock();
}

bool ADMFileLock::tryLock()
{
    std::lock_guard guard(lock_);
    if (file_ >= 0)
        return true;
    try {
        const auto made = dmf::internal::makeLockFile(path_);
        if (!made)
            return false;
        file_ = made->descriptor;
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

void ADMFileLock::unlock()
{
    std::lock_guard guard(lock_);
    if (file_ < 0)
        return;
    // A lock that was broken and taken by somebody else meanwhile is theirs.
    try {
        dmf::internal::giveBackLockFile(path_, file_);
    } catch (const std::system_error& failure) {
        // Somebody sits on the file, or the folder was closed to us; the lock is given up all the same.
        DMFLog("errors", "-[ADMFileLock unlock]: the lock file stays and must be broken: %@", failure.what());
    }
    ::close(file_);
    file_ = -1;
}

void ADMFileLock::breakLock()
{
    std::lock_guard guard(lock_);
    if (file_ >= 0)
        unlock();
    else
        ::unlink(path_.c_str());
}

std::optional<dmf::Date> ADMFileLock::lockDate() const
{
    return dmf::internal::lockFileBirth(path_);
}
