#include <dmf/ADMDiscoveryThread.h>

#include <dmf/ADMPOSIXMutex.h>
#include <dmf/platform/Date.h>

#include <atomic>
#include <utility>

#include "foundation/logging/Guarded.h"
#include "foundation/threads/HandOver.h"
#include "platform/runloop/RunLoopFeed.h"

using dmf::RunLoop;
using dmf::internal::guarded;
using dmf::internal::HandOver;

namespace {
/// Unlocks its completion once the action has run, or has been dropped.
class Action {
public:
    explicit Action(std::function<void()> function)
        : function_(std::move(function)), completion_(std::make_shared<HandOver>(HandOver::State::taken))
    {
    }
    ~Action()
    {
        function_ = nullptr; // what it holds goes before anybody hears of the end
        completion_->unlock();
    }
    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    [[nodiscard]] const std::shared_ptr<HandOver>& completion() const noexcept { return completion_; }
    /// What a back end throws must not end the thread that all of them share.
    void perform() const { guarded("Discovery", "in work on the discovery thread", function_); }

private:
    std::function<void()> function_;
    const std::shared_ptr<HandOver> completion_;
};

constexpr double kLongPast = 1000.0;      // seconds since the reference date
constexpr double kTimerInterval = 1000.0; // seconds
} // namespace

/// What one start of the thread serves: there from before its starter is let go until the loop has ended.
struct ADMDiscoveryThread::Loop {
    const std::shared_ptr<RunLoop> runLoop = RunLoop::current();
    dmf::internal::RunLoopFeed actions;
    /// Set by the first stop that comes to its turn: what is queued behind it is dropped, without the lock, which
    /// whoever waits for the thread's end may hold.
    const std::shared_ptr<std::atomic<bool>> isOver = std::make_shared<std::atomic<bool>>(false);

    Loop() { actions.schedule(runLoop, dmf::kDefaultRunLoopMode); }
};

ADMDiscoveryThread::ADMDiscoveryThread() : lock_(ADMPOSIXMutex::newRecursiveMutex())
{
    setRunDetached();
}

ADMDiscoveryThread::~ADMDiscoveryThread() = default;

std::shared_ptr<ADMDiscoveryThread> ADMDiscoveryThread::init()
{
    struct Made : ADMDiscoveryThread {};
    const auto made = std::make_shared<Made>();
    if (!made->lock_ || made->start() != 0)
        return nullptr;
    // The thread keeps its object alive while it runs, so it is the owners' references that are counted here.
    return {made.get(), [made](ADMDiscoveryThread*) {
                made->lock();
                if (made->isRunning())
                    made->stop();
                made->unlock();
            }};
}

std::shared_ptr<ADMDiscoveryThread::Loop> ADMDiscoveryThread::loop() const
{
    std::lock_guard guard(loopLock_);
    return loop_;
}

std::shared_ptr<RunLoop> ADMDiscoveryThread::runLoop() const
{
    const auto current = loop();
    return current ? current->runLoop : nullptr;
}

std::int32_t ADMDiscoveryThread::lock()
{
    return lock_->lock();
}

std::int32_t ADMDiscoveryThread::unlock()
{
    return lock_->unlock();
}

std::shared_ptr<IDMLock> ADMDiscoveryThread::lockObject() const
{
    return lock_;
}

std::shared_ptr<IDMLock> ADMDiscoveryThread::performAction(std::function<void()> action)
{
    const auto current = loop();
    return action && current ? queue(*current, std::move(action)) : nullptr;
}

std::shared_ptr<IDMLock> ADMDiscoveryThread::queue(Loop& loop, std::function<void()> action) const
{
    auto queued = std::make_shared<Action>(std::move(action));
    std::shared_ptr<IDMLock> completion = queued->completion();
    const bool isQueued = loop.actions.add([queued = std::move(queued), threadLock = lock_, isOver = loop.isOver] {
        if (*isOver)
            return;
        threadLock->lock();
        queued->perform();
        threadLock->unlock();
    });
    return isQueued ? completion : nullptr;
}

void ADMDiscoveryThread::signalForStop()
{
    ADMWorkerThread::signalForStop();
    // After the flag, which a thread that is just starting looks at as its loop is there.
    auto ended = loop();
    if (!ended)
        return;
    if (isCurrentThread())
        return ended->runLoop->stop();
    const auto stopped = queue(*ended, [runLoop = ended->runLoop, isOver = ended->isOver] {
        *isOver = true;
        runLoop->stop();
    });
    if (!stopped)
        return;
    ended = nullptr; // when the thread is past its loop, the action goes with it, undone
    // The action needs the lock, which a caller may hold, and more than once.
    int held = 0;
    while (lock_->unlock() == 0)
        ++held;
    stopped->lock();
    for (; held > 0; --held)
        lock_->lock();
    stopped->unlock();
}

std::uintptr_t ADMDiscoveryThread::threadEntry()
{
    // The starter waits for the run loop: `run` lets it go.
    return run();
}

std::uintptr_t ADMDiscoveryThread::run()
{
    const auto served = std::make_shared<Loop>();
    // A loop without a timer would return at once when it has nothing to do.
    const auto keeper = dmf::RunLoopTimer::create(dmf::Date(kLongPast), kTimerInterval, dmf::RunLoopTimer::Repeat::yes,
                                                  [](dmf::RunLoopTimer&) {});
    served->runLoop->addTimer(keeper, dmf::kDefaultRunLoopMode);
    bool isToEnd = false;
    {
        std::lock_guard guard(loopLock_);
        loop_ = served;
        isToEnd = isStopRequested(); // whoever asked before found no loop to stop
    }
    releaseStarter();

    // Work that was queued before the stop is done; the stop comes behind it.
    while (!isToEnd) {
        guarded("Discovery", "on the discovery thread", [&] { served->runLoop->run(); });
        isToEnd = isStopRequested();
    }

    keeper->invalidate();
    std::lock_guard guard(loopLock_);
    loop_ = nullptr; // what is still queued goes with `served`, after the lock
    return 0;
}

const char* ADMDiscoveryThread::threadName() const noexcept
{
    return "dmf-discovery";
}
