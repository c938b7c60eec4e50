#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>

namespace dmf::internal {
class LockFile;
}

/// A named lock between processes whose holder is presumed dead after a time: the lock is then broken and goes to
/// whoever comes next. The lock is the file "/tmp/NAME.dmf". Its age is told by a clock that only goes forward, so
/// nobody loses it because the machine's clock is set; by its date where it was made before the machine was started
/// last, or by another program, or somebody changed its date. Reentrant.
class DMF_EXPORT ADMDistributedLock {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Empty, with a line in the log, for a name with a "/" or a zero byte in it and when the folder of the locks is
    /// missing; empty, silently, for a missing name.
    [[nodiscard]] static std::shared_ptr<ADMDistributedLock> initWithName(std::optional<std::string_view> name);
    [[nodiscard]] static std::shared_ptr<ADMDistributedLock> lockWithName(std::optional<std::string_view> name)
    {
        return initWithName(name);
    }

    ADMDistributedLock(Passkey, std::string path);
    /// Does not unlock: a lock outlives the object, as it would outlive the process.
    ~ADMDistributedLock();
    ADMDistributedLock(const ADMDistributedLock&) = delete;
    ADMDistributedLock& operator=(const ADMDistributedLock&) = delete;

    /// The age, in seconds, from which on somebody else's lock counts as left behind; 30 at first.
    void setLockTimeout(double seconds) noexcept { timeout_ = seconds; }
    /// The pause between two attempts, in seconds; 0.05 at first.
    void setLockPollingTimeInterval(double seconds) noexcept { pollingTimeInterval_ = seconds; }

    /// Takes the lock; false when it could not be had. Blocks for up to twice the time-out and one polling interval (a
    /// pause longer than an hour is cut to an hour): a holder gets one full time-out before its lock is broken, and the
    /// waiter another to win the race for the freed lock. What may not be removed, another user's lock in a folder
    /// where that is forbidden for example, is waited for like a holder.
    [[nodiscard]] bool lock();
    /// Makes the lock that this object holds as young as one that is taken now, so that work may take longer than the
    /// time-out. False when it does not hold it or somebody broke it meanwhile. Never waits.
    [[nodiscard]] bool renew();
    /// Gives the lock back. True, also when this object does not hold it; false when the lock file could not be dealt
    /// with: it stays then and grows old, and another `unlock` tries again. When the lock was broken meanwhile, it is
    /// left to its new holder and an error is logged: what was done under it may have been disturbed. Blocks for up to
    /// a tenth of a second, while another process is about to break the lock.
    bool unlock();

private:
    const std::string path_;
    std::unique_ptr<dmf::internal::LockFile> taken_; // what this object took last and has not given back
    std::optional<dmf::Date> lockDate_; // when this object took the lock; nothing while it does not hold it
    double timeout_ = 30.0;
    double pollingTimeInterval_ = 0.05;
};
