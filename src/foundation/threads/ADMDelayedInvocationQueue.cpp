#include <dmf/ADMDelayedInvocationQueue.h>

using dmf::Date;
using dmf::RunLoop;
using dmf::RunLoopTimer;

int DMSortDelayedInvocationsByDate(const ADMDelayedInvocationQueue::Entry& existing,
                                   const ADMDelayedInvocationQueue::Entry& added, void*)
{
    constexpr int ascending = -1;
    constexpr int same = 0;
    constexpr int descending = 1;

    if (!existing.date)
        return added.date ? ascending : same;
    if (!added.date)
        return descending;
    if (*existing.date == *added.date)
        return same;
    return added.date->timeIntervalSince(*existing.date) < 0 ? descending : ascending;
}

ADMDelayedInvocationQueue::ADMDelayedInvocationQueue() = default;

std::shared_ptr<ADMDelayedInvocationQueue> ADMDelayedInvocationQueue::queue()
{
    struct Made : ADMDelayedInvocationQueue {};
    return std::make_shared<Made>();
}

ADMDelayedInvocationQueue::~ADMDelayedInvocationQueue() = default;

void ADMDelayedInvocationQueue::schedulePerformInvocation(Invocation invocation, std::optional<Date> afterDate)
{
    if (!invocation)
        return;
    com_ql_dmf_insertObject(delayedInvocations_, {std::move(invocation), afterDate}, &DMSortDelayedInvocationsByDate,
                            nullptr);
    moveTimer();
}

std::optional<Date> ADMDelayedInvocationQueue::lastDate() const
{
    return delayedInvocations_.empty() ? std::nullopt : delayedInvocations_.back().date;
}

void ADMDelayedInvocationQueue::cancelPreviousPerformRequests()
{
    // They go at the end: what goes with them may come back to this queue.
    const auto cancelled = std::exchange(delayedInvocations_, {});
    moveTimer();
}

void ADMDelayedInvocationQueue::executePreviousPerformRequests()
{
    const auto keptAlive = shared_from_this();
    const auto executed = delayedInvocations_;
    cancelPreviousPerformRequests();
    for (const Entry& entry : executed)
        entry.invocation();
}

Date ADMDelayedInvocationQueue::nextDelayedInvocationTimerFireDate() const
{
    if (delayedInvocations_.empty())
        return Date::distantFuture();
    return delayedInvocations_.front().date.value_or(Date::distantPast());
}

void ADMDelayedInvocationQueue::moveTimer()
{
    if (const auto timer = delayedInvocationTimer_.lock())
        timer->setFireDate(nextDelayedInvocationTimerFireDate());
}

std::shared_ptr<RunLoopTimer> ADMDelayedInvocationQueue::delayedInvocationTimer()
{
    // It repeats only to outlive each firing; the queue moves its fire date.
    auto timer = delayedInvocationTimer_.lock();
    if (!timer) {
        timer = RunLoopTimer::create(
            nextDelayedInvocationTimerFireDate(), 0, RunLoopTimer::Repeat::yes,
            [self = shared_from_this()](RunLoopTimer& fired) { self->delayedInvocationTimerDidFire(fired); });
        if (!isValid_)
            timer->invalidate();
        delayedInvocationTimer_ = timer;
    }
    return timer;
}

void ADMDelayedInvocationQueue::delayedInvocationTimerDidFire(RunLoopTimer& timer)
{
    Invocation first;
    if (!delayedInvocations_.empty()) {
        first = std::move(delayedInvocations_.front().invocation);
        delayedInvocations_.erase(delayedInvocations_.begin());
    }
    timer.setFireDate(nextDelayedInvocationTimerFireDate());
    if (first)
        first();
}

void ADMDelayedInvocationQueue::scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    if (runLoop)
        runLoop->addTimer(delayedInvocationTimer(), mode);
}

void ADMDelayedInvocationQueue::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    const auto keptAlive = shared_from_this();
    if (const auto timer = delayedInvocationTimer_.lock(); timer && runLoop)
        runLoop->removeTimer(timer, mode);
}

void ADMDelayedInvocationQueue::invalidate()
{
    const auto keptAlive = shared_from_this();
    const auto dropped = std::exchange(delayedInvocations_, {}); // goes at the end
    isValid_ = false;
    if (const auto timer = delayedInvocationTimer_.lock())
        timer->invalidate();
}
