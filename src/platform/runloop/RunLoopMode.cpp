#include "platform/runloop/RunLoopMode.h"

#include <dmf/platform/Format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

#include "platform/host/Host.h"
#include "platform/runloop/RunLoopSource.h"
#include "platform/runloop/RunLoopTimer.h"

namespace dmf::internal {

void RunLoopMode::end()
{
    std::vector<SourceItem> sources;
    std::vector<TimerItem> timers;
    {
        std::lock_guard guard(lock_);
        hasEnded_ = true;
        sources = sources_;
        timers = timers_;
    }
    for (const auto& source : sources)
        remove(*source);
    for (const auto& timer : timers)
        remove(*timer);
}

void RunLoopMode::moveTo(RunLoopMode& other)
{
    std::unique_lock guard(lock_);
    const auto sources = sources_;
    const auto timers = timers_;
    guard.unlock();
    for (const auto& source : sources)
        other.add(source);
    for (const auto& timer : timers)
        other.add(timer);
    end();
}

template <class Item>
void RunLoopMode::addItem(std::vector<Item>& list, const Item& item)
{
    std::lock_guard itemGuard(item->lock);
    if (!item->isValid)
        return;
    {
        std::lock_guard guard(lock_);
        if (hasEnded_ || std::find(list.begin(), list.end(), item) != list.end())
            return;
        list.push_back(item);
    }
    item->places.push_back(weak_from_this());
    wake();
}

void RunLoopMode::add(const SourceItem& source)
{
    addItem(sources_, source);
}

void RunLoopMode::add(const TimerItem& timer)
{
    addItem(timers_, timer);
}

void RunLoopMode::remove(RunLoopItem& item)
{
    SourceItem source; // these go last: the reference may be the last one
    TimerItem timer;
    const auto takeFrom = [&item](auto& list, auto& taken) {
        const auto place = std::find_if(list.begin(), list.end(), [&](const auto& it) { return it.get() == &item; });
        if (place == list.end())
            return;
        taken = std::move(*place);
        list.erase(place);
    };
    std::lock_guard itemGuard(item.lock);
    item.forget(*this);
    {
        std::lock_guard guard(lock_);
        takeFrom(sources_, source);
        takeFrom(timers_, timer);
    }
    if (source || timer)
        wake(); // a run ends when nothing is left
}

template <class Item>
bool RunLoopMode::holds(const std::vector<Item>& list, const Item& item) const
{
    std::lock_guard guard(lock_);
    return std::find(list.begin(), list.end(), item) != list.end();
}

void RunLoopMode::wake()
{
    // The first wake since the mode was last looked at is enough: looking clears the mark first.
    if (!wakeIsPending_.exchange(true))
        endWait();
}

void RunLoopMode::endWait()
{
    {
        std::lock_guard guard(waitLock_); // between the waiter's look at the mark and its wait nothing is missed
    }
    woken_.notify_all();
}

bool RunLoopMode::isEmpty() const
{
    std::lock_guard guard(lock_);
    return sources_.empty() && timers_.empty();
}

std::string RunLoopMode::description() const
{
    std::lock_guard guard(lock_);
    return formatted("%zu sources, %zu timers", sources_.size(), timers_.size());
}

bool RunLoopMode::isReady(double now) const
{
    std::lock_guard guard(lock_);
    return std::any_of(sources_.begin(), sources_.end(), [](const auto& it) { return it->isSignalled.load(); }) ||
           std::any_of(timers_.begin(), timers_.end(), [now](const auto& it) { return it->visibleDeadline <= now; });
}

double RunLoopMode::nextDeadline() const
{
    double next = std::numeric_limits<double>::infinity();
    std::lock_guard guard(lock_);
    for (const auto& timer : timers_)
        next = std::min(next, timer->visibleDeadline.load());
    return next;
}

void RunLoopMode::turn(RunFrame& frame, bool mayWait)
{
    if (mayWait)
        waitUntilDue(frame.deadline);
    serve(&frame);
}

void RunLoopMode::waitUntilDue(double limit)
{
    constexpr double longestWait = 24 * 3600; // seconds; the run loop asks again

    const double now = Host::current().steadyNow();
    if (isReady(now))
        return;
    const std::chrono::duration<double> wait(std::clamp(std::min(nextDeadline(), limit) - now, 0.0, longestWait));
    std::unique_lock guard(waitLock_);
    woken_.wait_for(guard, wait, [this] { return wakeIsPending_.load(); });
}

void RunLoopMode::serve(RunFrame* frame)
{
    struct Serving {
        bool* const flag;
        const bool before;
        ~Serving()
        {
            if (flag)
                *flag = before;
        }
    } const serving{frame ? &frame->isServing : nullptr, frame && std::exchange(frame->isServing, true)};
    serveSources(frame);
    serveTimers(frame);
}

/// What is not reached, because the run ends or a callback throws, stays signalled for the next turn.
void RunLoopMode::serveSources(RunFrame* frame)
{
    std::vector<SourceItem> signalled;
    {
        std::lock_guard guard(lock_);
        std::copy_if(sources_.begin(), sources_.end(), std::back_inserter(signalled),
                     [](const auto& it) { return it->isSignalled.load(); });
    }
    for (const auto& source : signalled) {
        if (frame && frame->mustEnd())
            return;
        if (holds(sources_, source))
            source->performIfSignalled(frame);
    }
}

void RunLoopMode::serveTimers(RunFrame* frame)
{
    const double now = Host::current().steadyNow();
    std::vector<std::pair<double, TimerItem>> due;
    {
        std::lock_guard guard(lock_);
        for (const auto& timer : timers_) {
            if (const double deadline = timer->visibleDeadline; deadline <= now)
                due.emplace_back(deadline, timer);
        }
    }
    std::stable_sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [deadline, timer] : due) {
        if (frame && frame->mustEnd())
            return;
        if (holds(timers_, timer))
            timer->fireIfDue(now, frame);
    }
}

} // namespace dmf::internal
