#pragma once

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>

#include <functional>
#include <memory>
#include <string_view>

namespace dmf::internal {

/// Hands calls over to the thread of a run loop: any thread adds, the run loop makes them in that order, in whichever
/// of the feed's modes it turns first. One source serves them all, so a burst costs one wake-up. A call may turn the
/// loop: the calls behind it are made there. What a call throws reaches the run loop and leaves the others to its next
/// turn.
///
/// Destroying the feed drops what is pending. Thread-safe but for the destructor. Exported for the tests.
class DMF_EXPORT RunLoopFeed final {
public:
    using Call = std::function<void()>;

    RunLoopFeed();
    ~RunLoopFeed();
    RunLoopFeed(const RunLoopFeed&) = delete;
    RunLoopFeed& operator=(const RunLoopFeed&) = delete;

    /// One run loop at a time; a second one is not woken.
    void schedule(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode);
    /// Appends a call; false, and dropped, without a run loop and when the run loop's thread has ended.
    bool add(Call call);
    /// Accepts no more, and leaves what is pending to the run loop: the source stays in its modes until it is drained,
    /// whatever becomes of the feed.
    void retire();

private:
    struct State;
    const std::shared_ptr<State> state_;
    const std::shared_ptr<RunLoopSource> source_; // its callback holds the state
};

} // namespace dmf::internal
