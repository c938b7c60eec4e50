#pragma once

#include <atomic>
#include <mutex>

namespace dmf {

/// A recursive lock that can tell its holder whether others wait for it. The system hands a lock to whoever asks first:
/// a thread that lets it go for a moment only, again and again, would keep all others out. Such a thread asks
/// `isWanted` and stays away for a while. Thread-safe.
class CourteousLock {
public:
    void lock()
    {
        if (mutex_.try_lock())
            return;
        ++waiting_;
        mutex_.lock();
        --waiting_;
    }
    bool try_lock() { return mutex_.try_lock(); }
    void unlock() { mutex_.unlock(); }
    [[nodiscard]] bool isWanted() const noexcept { return waiting_ > 0; }

private:
    std::recursive_mutex mutex_;
    std::atomic<int> waiting_{0};
};

} // namespace dmf
