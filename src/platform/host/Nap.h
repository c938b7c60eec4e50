#pragma once

#include <condition_variable>
#include <mutex>

#include <dmf/platform/Export.h>

namespace dmf::internal {

/// A thread's wait that others can end. Thread-safe. Its header is not installed.
class DMF_EXPORT Nap {
public:
    /// Waits until so many seconds have passed by the host's steady clock, or until `end`; at once after an earlier
    /// `end`. For one thread at a time.
    void take(double seconds);
    /// Ends the nap, and every later one before it begins.
    void end();

    /// Lets everybody who naps look at the clock: for a test that has moved it.
    static void clockHasMoved();

private:
    std::mutex lock_;
    std::condition_variable woken_;
    bool ended_ = false; // guarded by lock_
};

} // namespace dmf::internal
