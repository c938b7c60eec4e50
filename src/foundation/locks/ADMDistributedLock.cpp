#include <dmf/ADMDistributedLock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <thread>

#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include "platform/files/Files.h"
#include "platform/files/LockFile.h"
#include "platform/host/Host.h"

using dmf::internal::Host;
using dmf::internal::LockFile;
using dmf::internal::LockFileIdentity;
using dmf::internal::LockFileRemoval;

namespace {

void sleepFor(double seconds)
{
    // Short enough that a wait whose clock is set on, or whose pause is set too long, still ends.
    constexpr double longest = 3600.0;
    if (seconds > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(seconds, longest)));
}

} // namespace

std::shared_ptr<ADMDistributedLock> ADMDistributedLock::initWithName(std::optional<std::string_view> name)
{
    if (!name)
        return nullptr;
    const auto path = Host::current().path(dmf::formatted("/tmp/%@.dmf", *name));
    // A name is one file in the folder of the locks, never a way out of it.
    if (name->find('/') != std::string_view::npos || name->find('\0') != std::string_view::npos ||
        !dmf::internal::isFolder(dmf::internal::folderOf(path))) {
        DMFLog("errors", "[ADMDistributedLock initWithName]: cannot create file for distributed lock with path %@",
               path);
        return nullptr;
    }
    return std::make_shared<ADMDistributedLock>(Passkey(), path);
}

ADMDistributedLock::ADMDistributedLock(Passkey, std::string path) : path_(std::move(path)) {}

ADMDistributedLock::~ADMDistributedLock() = default;

bool ADMDistributedLock::lock()
try {
    const Host& host = Host::current();
    const double start = host.steadyNow();
    std::optional<LockFileIdentity> told; // the stale file that the log knows of
    do {
        const auto holder = LockFile::seenAt(path_);
        if (holder && holder->date().secondsSince1970() != 0 && LockFile::age(path_, *holder) > timeout_) {
            if (told != holder)
                DMFLog("debug", "-[ADMDistributedLock lock]: distributed lock is broken");
            // Several waiters may see the same stale lock; the file is removed once, and never a successor of it. One
            // that cannot be removed, another user's for example, may yet be given back while this object waits.
            if (LockFile::remove(path_, *holder) == LockFileRemoval::refused && told != holder)
                DMFLog("warnings", "-[ADMDistributedLock lock]: the broken lock %@ cannot be removed", path_);
            told = holder;
        }
        if (auto taken = LockFile::take(path_, LockFile::Mark::forwardClock)) {
            taken_ = std::move(taken);
            lockDate_ = taken_->date();
            return true;
        }
        sleepFor(pollingTimeInterval_);
    } while (host.steadyNow() - start < 2 * timeout_);
    DMFLog("debug", "-[ADMDistributedLock lock]: timeout. Lock hasn't been acquired");
    return false;
} catch (const std::exception&) {
    DMFLog("errors", "-[ADMDistributedLock lock] : exception caught during operating on lock");
    return false;
}

bool ADMDistributedLock::renew()
try {
    if (!taken_ || !taken_->isUntouched() || !taken_->renew())
        return false;
    lockDate_ = taken_->date();
    return true;
} catch (const std::exception&) {
    return false;
}

bool ADMDistributedLock::unlock()
try {
    if (!lockDate_)
        return true;
    if (!taken_ || !taken_->isUntouched() || !taken_->giveBack()) {
        DMFLog("errors", "-[ADMDistributedLock unlock] : the lock has already been broken by somebody else. Using of a "
                         "shared resource could be unsafe");
        return true;
    }
    taken_.reset();
    lockDate_.reset();
    return true;
} catch (const std::exception&) {
    DMFLog("errors", "-[ADMDistributedLock unlock]: exception caughtduring unlocking");
    return false;
}
