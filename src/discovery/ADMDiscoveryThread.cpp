#include <dmf/ADMDiscoveryThread.h>

#include <dmf/ADMPOSIXMutex.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Date.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "foundation/threads/HandOver.h"
#include "platform/runloop/RunLoopFeed.h"

using dmf::RunLoop;
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
    void perform() const
    {
        try {
            function_();
        } catch (const std::exception& exception) {
            DMFLog("errors", "Discovery: exception %@ in work on the discovery thread.", exception);
        }
    }

private:
    std::function<void()> function_;
    const std::shared_ptr<HandOver> completion_;
};

constexpr double kLongPast = 1000.0;      // seconds since the reference date
constexpr double kTimerInterval = 1000.0; // seconds
} // namespace

/// The queue of actions belongs to the loop that serves it.
struct ADMDiscoveryThread::Actions {
    dmf::internal::RunLoopFeed feed;
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

std::shared_ptr<RunLoop> ADMDiscoveryThread::runLoop() const
{
    std::lock_guard guard(loopLock_);
    return runLoop_;
}

std::shared_ptr<ADMDiscoveryThread::Actions> ADMDiscoveryThread::actions() const
{
    std::lock_guard guard(loopLock_);
    return actions_;
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
    const auto queue = actions();
    if (!action || !queue)
        return nullptr;
    auto queued = std::make_shared<Action>(std::move(action));
    std::shared_ptr<IDMLock> completion = queued->completion();
    const bool isQueued = queue->feed.add([queued = std::move(queued), threadLock = lock_] {
        threadLock->lock();
        queued->perform();
        threadLock->unlock();
    });
    return isQueued ? completion : nullptr;
}

void ADMDiscoveryThread::signalForStop()
{
    ADMWorkerThread::signalForStop();
    const auto loop = runLoop();
    if (isCurrentThread()) {
        if (loop)
            loop->stop();
        return;
    }
    const auto stopped = performAction([loop] { loop->stop(); });
    if (!stopped)
        return;
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
    const std::uintptr_t result = run();
    finish(result);
    return result;
}

std::uintptr_t ADMDiscoveryThread::run()
{
    const auto loop = RunLoop::current();
    // A loop without a source would return at once.
    const auto keeper = dmf::RunLoopTimer::create(dmf::Date(kLongPast), kTimerInterval, dmf::RunLoopTimer::Repeat::yes,
                                                  [](dmf::RunLoopTimer&) {});
    auto actions = std::make_shared<Actions>();
    loop->addTimer(keeper, dmf::kDefaultRunLoopMode);
    actions->feed.schedule(loop, dmf::kDefaultRunLoopMode);
    {
        std::lock_guard guard(loopLock_);
        runLoop_ = loop;
        actions_ = std::move(actions);
    }
    releaseStarter();

    // Work that was queued before the stop is done; the stop comes behind it.
    do {
        try {
            loop->run();
        } catch (const std::exception& exception) {
            DMFLog("errors", "Discovery: exception %@ on the discovery thread.", exception);
        }
    } while (!isStopRequested());

    keeper->invalidate();
    std::lock_guard guard(loopLock_);
    runLoop_ = nullptr;
    actions.swap(actions_); // what is still queued goes, outside the lock
    return 0;
}

const char* ADMDiscoveryThread::threadName() const noexcept
{
    return "dmf-discovery";
}
