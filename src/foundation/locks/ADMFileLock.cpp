#include <dmf/ADMFileLock.h>

#include <system_error>
#include <utility>

#include <dmf/DMLog.h>

#include "platform/files/Files.h"
#include "platform/files/LockFile.h"

using dmf::internal::LockFile;

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
    if (taken_)
        return true;
    try {
        taken_ = LockFile::take(path_, LockFile::Mark::none);
    } catch (const std::system_error&) {
        return false;
    }
    return taken_ != nullptr;
}

void ADMFileLock::unlock()
{
    std::lock_guard guard(lock_);
    // Given up in any case. A lock that was broken and taken by somebody else meanwhile is theirs.
    const auto taken = std::exchange(taken_, nullptr);
    if (!taken)
        return;
    try {
        taken->giveBack();
    } catch (const std::system_error& failure) {
        // Somebody sits on the file, or the folder was closed to us.
        DMFLog("errors", "-[ADMFileLock unlock]: the lock file stays and must be broken: %@", failure.what());
    }
}

void ADMFileLock::breakLock()
{
    std::lock_guard guard(lock_);
    if (taken_)
        return unlock();
    try {
        LockFile::breakAt(path_);
    } catch (const std::system_error& failure) {
        DMFLog("errors", "-[ADMFileLock breakLock]: the lock file stays: %@", failure.what());
    }
}

std::optional<dmf::Date> ADMFileLock::lockDate() const
{
    return LockFile::birth(path_);
}
