#include "platform/runloop/RunLoopTimer.h"

#include <cmath>
#include <limits>
#include <utility>

#include "platform/host/Host.h"

namespace dmf {

using internal::Host;

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

} // namespace

RunLoopTimer::Private::Private(double every, Repeat again, Callback function)
    : interval(every), repeat(again), callback(std::make_shared<const Callback>(std::move(function)))
{
}

void RunLoopTimer::Private::fireIfDue(double now, internal::RunFrame* frame)
{
    std::shared_ptr<const Callback> fired;
    {
        std::lock_guard guard(lock);
        if (!isValid || isFiring || !(deadline <= now))
            return;
        fired = callback;
        isFiring = true;
        if (repeat == Repeat::yes)
            moveOn(now);
        publishDeadline();
    }
    if (frame)
        frame->hasHandled = true;

    struct Firing {
        Private& timer;
        ~Firing() { timer.endFiring(); }
    } const firing{*this};
    if (repeat == Repeat::no)
        owner->invalidate();
    if (*fired)
        (*fired)(*owner);
}

void RunLoopTimer::Private::setDate(Date date)
{
    fireDate = date;
    deadline = date >= Date::distantFuture()
                   ? kNever
                   : Host::current().steadyNow() + date.timeIntervalSince(Date(Host::current().now()));
    publishDeadline();
}

void RunLoopTimer::Private::moveOn(double now)
{
    if (!(interval > 0)) {
        fireDate = Date::distantFuture();
        deadline = kNever;
        return;
    }
    const double step = interval * (std::floor((now - deadline) / interval) + 1);
    fireDate = fireDate.addingTimeInterval(step);
    deadline += step;
}

/// A timer that fires is not due again before its callback has returned, whatever loop the callback runs.
void RunLoopTimer::Private::publishDeadline()
{
    visibleDeadline = isFiring ? kNever : deadline;
}

void RunLoopTimer::Private::endFiring()
{
    std::lock_guard guard(lock);
    isFiring = false;
    publishDeadline();
    if (places.size() > 1) // another thread's loop may wait in one of them
        wakePlaces();
}

RunLoopTimer::RunLoopTimer(std::shared_ptr<Private> state) : private_(std::move(state))
{
    private_->owner = this;
}

std::shared_ptr<RunLoopTimer> RunLoopTimer::create(Date fireDate, double interval, Repeat repeat,
                                                   std::function<void(RunLoopTimer&)> callback)
{
    struct Made : RunLoopTimer {
        explicit Made(std::shared_ptr<Private> state) : RunLoopTimer(std::move(state)) {}
    };
    auto state = std::make_shared<Private>(interval, repeat, std::move(callback));
    state->setDate(fireDate);
    return std::make_shared<Made>(std::move(state));
}

RunLoopTimer::~RunLoopTimer() = default;

Date RunLoopTimer::fireDate() const
{
    std::lock_guard guard(private_->lock);
    return private_->fireDate;
}

void RunLoopTimer::setFireDate(Date date)
{
    std::lock_guard guard(private_->lock);
    if (!private_->isValid)
        return;
    private_->setDate(date);
    private_->wakePlaces();
}

void RunLoopTimer::invalidate()
{
    const auto kept = private_; // the modes may hold the last reference to this object
    if (!kept->invalidate())
        return;
    std::shared_ptr<const Private::Callback> dropped; // what it holds goes outside the lock
    std::lock_guard guard(kept->lock);
    dropped.swap(kept->callback);
}

bool RunLoopTimer::isValid() const noexcept
{
    return private_->isValid;
}

} // namespace dmf
