#pragma once

#include <memory>
#include <mutex>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>

/// Invalidates a timer on the thread of the run loop that it belongs to, and waits until that is done: afterwards the
/// timer's callback neither runs nor will run. Only where the timer's own callback makes the request, or turns the loop
/// that serves it, does that one call run on to its end; it is the last. One request at a time. Thread-safe.
class DMF_EXPORT ADMInvalidateHelper {
public:
    ADMInvalidateHelper();
    ~ADMInvalidateHelper();
    ADMInvalidateHelper(const ADMInvalidateHelper&) = delete;
    ADMInvalidateHelper& operator=(const ADMInvalidateHelper&) = delete;

    /// True when the request was carried out; false at once when an argument is missing (null, or an empty mode) or
    /// another request is under way. Blocks, without a limit, until `runLoop` turns in `mode`; ends early, with the
    /// timer as it was, when the run loop's thread ends. On the run loop's own thread the timer is invalidated at once.
    bool invalidateTimer(const std::shared_ptr<dmf::RunLoopTimer>& timer, const std::shared_ptr<dmf::RunLoop>& runLoop,
                         std::string_view mode);

private:
    bool begin(const std::shared_ptr<dmf::RunLoopTimer>& timer);
    void invalidateCallback();
    void end();

    std::mutex lock_;
    std::shared_ptr<dmf::RunLoopTimer> timer_; // guarded by lock_; set while a request is under way
};
