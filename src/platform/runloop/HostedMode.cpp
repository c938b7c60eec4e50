#include "platform/runloop/HostedMode.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "platform/host/Host.h"

namespace dmf::internal {

/// The object that GLib sees. It holds the mode, so that a turn under way never loses it.
struct HostedMode::Source {
    GSource base;
    std::shared_ptr<HostedMode>* mode; // by atomic access: it orders the maker's writes before the turner's reads
};

HostedMode::HostedMode(GMainContext* context) : context_(context) {}

HostedMode::~HostedMode()
{
    g_main_context_unref(context_);
}

std::shared_ptr<HostedMode> HostedMode::create(GMainContext* context)
{
    auto made = std::make_shared<HostedMode>(context);
    made->attach();
    return made;
}

void HostedMode::attach()
{
    static GSourceFuncs functions = {&prepare, &check, &dispatch, &finalize, nullptr, nullptr};
    source_ = g_source_new(&functions, sizeof(Source));
    auto holder =
        std::make_unique<std::shared_ptr<HostedMode>>(std::static_pointer_cast<HostedMode>(shared_from_this()));
    std::atomic_ref(reinterpret_cast<Source*>(source_)->mode).store(holder.release(), std::memory_order_release);
    g_source_set_static_name(source_, "dmf run loop mode");
    // A callback may run the same mode again.
    g_source_set_can_recurse(source_, TRUE);
    g_source_attach(source_, context_);
}

HostedMode& HostedMode::of(GSource* source) noexcept
{
    return **std::atomic_ref(reinterpret_cast<Source*>(source)->mode).load(std::memory_order_acquire);
}

void HostedMode::finalize(GSource* source)
{
    auto* const holder = std::atomic_ref(reinterpret_cast<Source*>(source)->mode).load(std::memory_order_acquire);
    const std::unique_ptr<std::shared_ptr<HostedMode>> dropped(holder);
}

RunFrame* HostedMode::turningFrame(int depth) const noexcept
{
    return frame_ && !frame_->isServing && frame_->hostDepth == depth ? frame_ : nullptr;
}

RunFrame* HostedMode::setFrame(RunFrame* frame) noexcept
{
    return std::exchange(frame_, frame);
}

gboolean HostedMode::prepare(GSource* source, gint* timeout)
{
    constexpr double longestWait = 24 * 3600; // seconds; the answer is in milliseconds of an int

    HostedMode& mode = of(source);
    mode.beginLooking();
    const double now = Host::current().steadyNow();
    if (mode.isReady(now)) {
        *timeout = 0;
        return TRUE;
    }
    double next = mode.nextDeadline();
    if (const RunFrame* const frame = mode.turningFrame(g_main_depth()))
        next = std::min(next, frame->deadline);
    *timeout = std::isinf(next) ? -1 : static_cast<gint>(std::ceil(std::clamp(next - now, 0.0, longestWait) * 1000));
    return FALSE;
}

gboolean HostedMode::check(GSource* source)
{
    return of(source).isReady(Host::current().steadyNow());
}

/// No exception may pass through GLib: one that a callback throws ends the run that turns the mode; in a loop of the
/// host's own with no run around it there is nobody to hand it to, and it ends the program.
gboolean HostedMode::dispatch(GSource* source, GSourceFunc, gpointer) noexcept
{
    const auto mode = std::static_pointer_cast<HostedMode>(of(source).shared_from_this());
    RunFrame* const receiver = mode->frame_;
    if (!receiver) {
        mode->serve(nullptr);
        return G_SOURCE_CONTINUE;
    }
    RunFrame* const frame = mode->turningFrame(g_main_depth() - 1);
    if (frame)
        frame->wasTurned = true;
    try {
        mode->serve(frame);
    } catch (...) {
        if (!receiver->thrown)
            receiver->thrown = std::current_exception();
    }
    return G_SOURCE_CONTINUE;
}

void HostedMode::end()
{
    RunLoopMode::end();
    g_source_destroy(source_);
    g_source_unref(std::exchange(source_, nullptr));
}

void HostedMode::endWait()
{
    g_main_context_wakeup(context_);
}

void HostedMode::turn(RunFrame& frame, bool mayWait)
{
    frame.hostDepth = g_main_depth();
    frame.wasTurned = false;
    g_main_context_iteration(context_, mayWait);
    // The host's sources of a higher priority go first and may have taken the turn; a last turn must serve ours too.
    if (!frame.thrown && !mayWait && !frame.wasTurned)
        serve(&frame);
    if (frame.thrown)
        std::rethrow_exception(std::exchange(frame.thrown, nullptr));
}

} // namespace dmf::internal
