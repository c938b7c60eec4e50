#include "platform/runloop/RunLoopPrivate.h"

#include <dmf/platform/Format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/host/Host.h"

namespace dmf::internal {

/// The object that GLib sees. It holds the mode, so that a turn under way never loses it.
struct RunLoopMode::Source {
    GSource base;
    std::shared_ptr<RunLoopMode>* mode; // by atomic access: it orders the maker's writes before the turner's reads
};

RunLoopMode::RunLoopMode(GMainContext* context) : context_(context) {}

RunLoopMode::~RunLoopMode()
{
    g_main_context_unref(context_);
}

std::shared_ptr<RunLoopMode> RunLoopMode::create(GMainContext* context)
{
    auto made = std::make_shared<RunLoopMode>(context);
    made->attach();
    return made;
}

void RunLoopMode::attach()
{
    static GSourceFuncs functions = {&prepare, &check, &dispatch, &finalize, nullptr, nullptr};
    source_ = g_source_new(&functions, sizeof(Source));
    auto holder = std::make_unique<std::shared_ptr<RunLoopMode>>(shared_from_this());
    std::atomic_ref(reinterpret_cast<Source*>(source_)->mode).store(holder.release(), std::memory_order_release);
    g_source_set_static_name(source_, "dmf run loop mode");
    // A callback may run the same mode again.
    g_source_set_can_recurse(source_, TRUE);
    g_source_attach(source_, context_);
}

RunLoopMode& RunLoopMode::of(GSource* source) noexcept
{
    return **std::atomic_ref(reinterpret_cast<Source*>(source)->mode).load(std::memory_order_acquire);
}

void RunLoopMode::finalize(GSource* source)
{
    auto* const holder = std::atomic_ref(reinterpret_cast<Source*>(source)->mode).load(std::memory_order_acquire);
    const std::unique_ptr<std::shared_ptr<RunLoopMode>> dropped(holder);
}

gboolean RunLoopMode::prepare(GSource* source, gint* timeout)
{
    constexpr double longestWait = 24 * 3600; // seconds; the answer is in milliseconds of an int

    RunLoopMode& mode = of(source);
    mode.beginLooking();
    const double now = Host::current().steadyNow();
    if (mode.isReady(now)) {
        *timeout = 0;
        return TRUE;
    }
    double next = mode.nextDeadline();
    // A loop of the host's own that is turned inside a callback has nothing to do with the run's limit.
    if (mode.frame_ && mode.frame_->dispatchDepth == g_main_depth())
        next = std::min(next, mode.frame_->deadline);
    *timeout = std::isinf(next) ? -1 : static_cast<gint>(std::ceil(std::clamp(next - now, 0.0, longestWait) * 1000));
    return FALSE;
}

gboolean RunLoopMode::check(GSource* source)
{
    return of(source).isReady(Host::current().steadyNow());
}

/// No exception may pass through GLib: one that a callback throws ends the run that turns the mode; in a loop of the
/// host's own there is nobody to hand it to, and it ends the program.
gboolean RunLoopMode::dispatch(GSource* source, GSourceFunc, gpointer) noexcept
{
    const std::shared_ptr<RunLoopMode> mode = of(source).shared_from_this();
    RunFrame* const frame = mode->frame_;
    if (!frame) {
        mode->serve(nullptr);
        return G_SOURCE_CONTINUE;
    }
    try {
        mode->serve(frame);
    } catch (...) {
        frame->thrown = std::current_exception();
    }
    return G_SOURCE_CONTINUE;
}

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
        remove(source);
    for (const auto& timer : timers)
        remove(timer);
    g_source_destroy(source_);
    g_source_unref(std::exchange(source_, nullptr));
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
    item->modesStoodIn.push_back(weak_from_this());
    wake();
}

template <class Item>
void RunLoopMode::removeItem(std::vector<Item>& list, const Item& item)
{
    Item removed; // goes last: the reference may be the last one
    std::lock_guard itemGuard(item->lock);
    std::erase_if(item->modesStoodIn, [this](const auto& mode) {
        const auto standing = mode.lock();
        return !standing || standing.get() == this;
    });
    std::lock_guard guard(lock_);
    const auto place = std::find(list.begin(), list.end(), item);
    if (place == list.end())
        return;
    removed = std::move(*place);
    list.erase(place);
    wake(); // a run ends when nothing is left
}

void RunLoopMode::add(const SourceItem& source)
{
    addItem(sources_, source);
}

void RunLoopMode::add(const TimerItem& timer)
{
    addItem(timers_, timer);
}

void RunLoopMode::remove(const SourceItem& source)
{
    removeItem(sources_, source);
}

void RunLoopMode::remove(const TimerItem& timer)
{
    removeItem(timers_, timer);
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
        g_main_context_wakeup(context_);
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

void RunLoopMode::iterate(RunFrame& frame, bool mayWait)
{
    frame.wasTurned = false;
    g_main_context_iteration(context_, mayWait);
    if (frame.thrown)
        std::rethrow_exception(std::exchange(frame.thrown, nullptr));
    // The host's sources of a higher priority go first and may have taken the turn; a last turn must serve ours too.
    if (!mayWait && !frame.wasTurned)
        serve(&frame);
}

void RunLoopMode::serve(RunFrame* frame)
{
    if (frame)
        frame->wasTurned = true;
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
