#include <dmf/ADMInvalidateHelper.h>

#include <utility>

#include "foundation/threads/HandOver.h"

using dmf::RunLoopTimer;
using dmf::internal::HandOver;

ADMInvalidateHelper::ADMInvalidateHelper() = default;
ADMInvalidateHelper::~ADMInvalidateHelper() = default;

bool ADMInvalidateHelper::invalidateTimer(const std::shared_ptr<RunLoopTimer>& timer,
                                          const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    if (!timer || !runLoop || mode.empty() || !begin(timer))
        return false;
    if (runLoop->isCurrent()) {
        invalidateCallback(); // nobody else could serve the request while this thread waits for it
        end();
        return true;
    }
    const auto done = std::make_shared<HandOver>(HandOver::State::taken);
    {
        // The run loop alone keeps the one-shot timer, and lets go of its callback once it has run, or unused when the
        // loop's thread ends; either way the wait is over.
        const std::shared_ptr<void> release(nullptr, [done](void*) { done->unlock(); });
        runLoop->addTimer(RunLoopTimer::create(dmf::Date::now(), 0, RunLoopTimer::Repeat::no,
                                               [this, release](RunLoopTimer&) { invalidateCallback(); }),
                          mode);
    }
    done->lock();
    end();
    return true;
}

bool ADMInvalidateHelper::begin(const std::shared_ptr<RunLoopTimer>& timer)
{
    std::lock_guard guard(lock_);
    if (timer_)
        return false;
    timer_ = timer;
    return true;
}

void ADMInvalidateHelper::invalidateCallback()
{
    std::shared_ptr<RunLoopTimer> timer;
    {
        std::lock_guard guard(lock_);
        timer = timer_;
    }
    timer->invalidate();
}

void ADMInvalidateHelper::end()
{
    std::shared_ptr<RunLoopTimer> dropped; // goes outside the lock
    std::lock_guard guard(lock_);
    dropped.swap(timer_);
}
