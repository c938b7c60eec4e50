#pragma once

#include <dmf/platform/RunLoop.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/runloop/RunFrame.h"
#include "platform/runloop/RunLoopItem.h"

namespace dmf::internal {

/// The sources and timers of one mode of one run loop. Turned by `runMode` alone, it waits on a condition of its own:
/// it needs no descriptor, so that it can be had when none are left. What passes between threads passes under a lock or
/// through atomics.
class RunLoopMode : public RunLoopPlace, public std::enable_shared_from_this<RunLoopMode> {
public:
    using SourceItem = std::shared_ptr<RunLoopSource::Private>;
    using TimerItem = std::shared_ptr<RunLoopTimer::Private>;

    RunLoopMode() = default;
    RunLoopMode(const RunLoopMode&) = delete;
    RunLoopMode& operator=(const RunLoopMode&) = delete;

    /// The mode holds its items; the item's own object is what it keeps alive.
    void add(const SourceItem& source);
    void add(const TimerItem& timer);
    void remove(RunLoopItem& item) override;
    /// Hands all items over. For the run loop's thread.
    void moveTo(RunLoopMode& other);
    /// Lets go of the items. For the run loop's thread.
    virtual void end();

    void wake() override;
    /// To be called before looking at what `wake` announces: from here on the next one counts again.
    void beginLooking() { wakeIsPending_.exchange(false); }
    [[nodiscard]] bool isEmpty() const;
    [[nodiscard]] std::string description() const;

    /// Serves what is due under `frame`, having waited for it where it `mayWait`. For the run loop's thread.
    virtual void turn(RunFrame& frame, bool mayWait);
    /// Tells the innermost run of this mode, or none, and gives the one before.
    virtual RunFrame* setFrame(RunFrame*) noexcept { return nullptr; }

protected:
    /// Ends the wait that is under way, or the next one.
    virtual void endWait();

    [[nodiscard]] bool isReady(double now) const;
    [[nodiscard]] double nextDeadline() const;
    /// Without a frame nobody's end is obeyed: all that is due is served.
    void serve(RunFrame* frame);

private:
    template <class Item>
    void addItem(std::vector<Item>& list, const Item& item);
    template <class Item>
    [[nodiscard]] bool holds(const std::vector<Item>& list, const Item& item) const;

    void waitUntilDue(double limit);
    void serveSources(RunFrame* frame);
    void serveTimers(RunFrame* frame);

    std::atomic<bool> wakeIsPending_{false};
    mutable std::mutex lock_;
    std::vector<SourceItem> sources_; // guarded by lock_
    std::vector<TimerItem> timers_;   // guarded by lock_
    bool hasEnded_ = false;           // guarded by lock_
    std::mutex waitLock_;             // taken last, for the condition only
    std::condition_variable woken_;
};

} // namespace dmf::internal
