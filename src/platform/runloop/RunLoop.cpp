#include <dmf/platform/RunLoop.h>

#include <dmf/platform/Format.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <glib.h>

#include "platform/host/ForkGuard.h"
#include "platform/host/Host.h"
#include "platform/host/Reserve.h"
#include "platform/host/Thread.h"
#include "platform/runloop/HostedMode.h"
#include "platform/runloop/RunLoopSource.h"
#include "platform/runloop/RunLoopTimer.h"

namespace dmf {

using internal::Host;
using internal::HostedMode;
using internal::RunFrame;
using internal::RunLoopMode;

namespace {

/// Set once the thread's run loop was let go: what the thread's last destructors ask for is not kept.
constinit thread_local bool gThreadIsEnding = false;

bool isMainThread() noexcept
{
    thread_local const bool isMain = ::syscall(SYS_gettid) == ::getpid();
    return isMain;
}

/// Keeps a thread's run loop until the thread ends.
struct ThreadSlot {
    std::shared_ptr<RunLoop> loop;
    void (*end)(RunLoop&) = nullptr;
    ~ThreadSlot()
    {
        gThreadIsEnding = true;
        if (loop)
            end(*loop);
    }
};

} // namespace

struct RunLoop::Private {
    class Run;

    Private();

    /// Gives the default mode the main context that this thread's loop has, where it has none yet and one can be had.
    void takeContext();
    void host(GMainContext* context);
    /// Adds to the mode of that name; nothing once the thread has ended.
    template <class Item>
    void add(std::string_view name, const Item& item);
    [[nodiscard]] std::shared_ptr<RunLoopMode> existingMode(std::string_view name);
    void wakeAll();
    void end();

    const std::thread::id thread = std::this_thread::get_id();
    std::atomic<bool> stopRequested{false};
    std::mutex lock;
    std::map<std::string, std::shared_ptr<RunLoopMode>, std::less<>> modes; // guarded by lock
    std::vector<std::string> running;                                       // guarded by lock
    bool hasEnded = false;                                                  // guarded by lock
    // For the run loop's thread:
    bool awaitsContext = false;
    GMainContext* pushedContext = nullptr;
};

/// Notes a run in the loop and in the mode for as long as it lasts.
class RunLoop::Private::Run {
public:
    Run(Private& loop, std::string_view name, RunLoopMode& mode, RunFrame& frame)
        : loop_(loop), mode_(mode), outer_(mode.setFrame(&frame))
    {
        std::lock_guard guard(loop_.lock);
        loop_.running.emplace_back(name);
    }
    ~Run()
    {
        mode_.setFrame(outer_);
        std::lock_guard guard(loop_.lock);
        loop_.running.pop_back();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

private:
    Private& loop_;
    RunLoopMode& mode_;
    RunFrame* const outer_;
};

/// The default mode is the thread's default context as it is now, so that a host's own loop turns it. Where nobody has
/// made one, the loop turns it by itself (never the process's, which the main thread turns); the library's own threads
/// have a context and make it their thread's default, so that platform services used there report to it.
RunLoop::Private::Private()
{
    hasEnded = internal::isForkedCopy();
    if (hasEnded)
        return;
    modes.emplace(kDefaultRunLoopMode, std::make_shared<RunLoopMode>());
    if (GMainContext* const context = g_main_context_get_thread_default()) {
        host(g_main_context_ref(context));
        return;
    }
    awaitsContext = isMainThread() || (internal::isLibraryThread() && !gThreadIsEnding);
    takeContext();
}

/// GLib ends the program where it gets no descriptors for a context. Without it the default mode works as the others
/// do, and the next one who asks for the thread's loop tries again.
void RunLoop::Private::takeContext()
{
    if (!awaitsContext || internal::isForkedCopy() || !running.empty() || !internal::canOpenDescriptors())
        return;
    awaitsContext = false;
    if (isMainThread()) {
        host(g_main_context_ref(g_main_context_default()));
        return;
    }
    pushedContext = g_main_context_new();
    g_main_context_push_thread_default(pushedContext);
    host(pushedContext); // the thread's stack of defaults has a reference of its own
}

/// Takes over the reference to `context`.
void RunLoop::Private::host(GMainContext* context)
{
    const auto hosted = HostedMode::create(context);
    std::lock_guard guard(lock);
    std::shared_ptr<RunLoopMode>& mode = modes.find(kDefaultRunLoopMode)->second;
    mode->moveTo(*hosted);
    mode = hosted;
}

template <class Item>
void RunLoop::Private::add(std::string_view name, const Item& item)
{
    if (internal::isForkedCopy())
        return;
    std::lock_guard guard(lock);
    if (hasEnded)
        return;
    auto entry = modes.find(name);
    if (entry == modes.end())
        entry = modes.emplace(name, std::make_shared<RunLoopMode>()).first;
    entry->second->add(item);
}

std::shared_ptr<RunLoopMode> RunLoop::Private::existingMode(std::string_view name)
{
    if (internal::isForkedCopy())
        return nullptr;
    std::lock_guard guard(lock);
    const auto entry = modes.find(name);
    return entry == modes.end() ? nullptr : entry->second;
}

void RunLoop::Private::wakeAll()
{
    if (internal::isForkedCopy()) // it would wake the process that it was copied from
        return;
    std::lock_guard guard(lock);
    for (const auto& entry : modes)
        entry.second->wake();
}

void RunLoop::Private::end()
{
    if (internal::isForkedCopy())
        return;
    decltype(modes) ended;
    {
        std::lock_guard guard(lock);
        hasEnded = true;
        ended.swap(modes);
    }
    if (pushedContext)
        g_main_context_pop_thread_default(std::exchange(pushedContext, nullptr));
    for (const auto& entry : ended)
        entry.second->end();
}

RunLoop::RunLoop() : private_(std::make_shared<Private>()) {}

RunLoop::~RunLoop()
{
    private_->end();
}

std::shared_ptr<RunLoop> RunLoop::current()
{
    struct Made : RunLoop {};
    const auto made = [](std::shared_ptr<RunLoop>& kept) {
        if (!kept)
            kept = std::make_shared<Made>();
        else
            kept->private_->takeContext();
        return kept;
    };
    if (isMainThread()) {
        // The main thread ends with the process, after others may still have asked for its loop.
        static auto* const mainLoop = new std::shared_ptr<RunLoop>;
        return made(*mainLoop);
    }
    if (gThreadIsEnding)
        return std::make_shared<Made>();
    thread_local ThreadSlot slot;
    slot.end = [](RunLoop& loop) { loop.private_->end(); };
    return made(slot.loop);
}

RunLoop::Result RunLoop::runMode(std::string_view mode, Date limit, bool returnAfterSourceHandled)
{
    if (!isCurrent())
        throw std::logic_error("RunLoop: runMode was called on a thread other than the run loop's own");
    const auto turned = private_->existingMode(mode);
    if (!turned)
        return private_->stopRequested.exchange(false) ? Result::stopped : Result::finished;

    const double wait = limit.timeIntervalSince(Date(Host::current().now()));
    RunFrame frame{private_->stopRequested, Host::current().steadyNow() + wait, returnAfterSourceHandled};
    const Private::Run run(*private_, mode, *turned, frame);

    for (bool isFirstTurn = true;; isFirstTurn = false) {
        turned->beginLooking();
        if (private_->stopRequested.exchange(false))
            return Result::stopped;
        if (frame.mustEnd())
            return Result::handledSource;
        const bool isEmpty = turned->isEmpty();
        const bool isPastLimit = Host::current().steadyNow() >= frame.deadline;
        if (!isFirstTurn && isEmpty)
            return Result::finished;
        if (!isFirstTurn && isPastLimit)
            return Result::timedOut;
        turned->turn(frame, !isEmpty && !isPastLimit);
    }
}

void RunLoop::stop()
{
    private_->stopRequested = true;
    wakeUp();
}

void RunLoop::wakeUp()
{
    private_->wakeAll();
}

bool RunLoop::hasEnded() const
{
    if (internal::isForkedCopy())
        return true;
    std::lock_guard guard(private_->lock);
    return private_->hasEnded;
}

bool RunLoop::isCurrent() const noexcept
{
    return private_->thread == std::this_thread::get_id();
}

std::optional<std::string> RunLoop::currentMode() const
{
    std::lock_guard guard(private_->lock);
    return private_->running.empty() ? std::nullopt : std::optional(private_->running.back());
}

void RunLoop::addSource(const std::shared_ptr<RunLoopSource>& source, std::string_view mode)
{
    if (source)
        private_->add(mode, RunLoopMode::SourceItem(source, source->private_.get()));
}

void RunLoop::removeSource(const std::shared_ptr<RunLoopSource>& source, std::string_view mode)
{
    if (const auto left = source ? private_->existingMode(mode) : nullptr)
        left->remove(*source->private_);
}

void RunLoop::addTimer(const std::shared_ptr<RunLoopTimer>& timer, std::string_view mode)
{
    if (timer)
        private_->add(mode, RunLoopMode::TimerItem(timer, timer->private_.get()));
}

void RunLoop::removeTimer(const std::shared_ptr<RunLoopTimer>& timer, std::string_view mode)
{
    if (const auto left = timer ? private_->existingMode(mode) : nullptr)
        left->remove(*timer->private_);
}

std::string RunLoop::description() const
{
    const std::string mode = currentMode().value_or("none");
    std::string text = formatted("<RunLoop %p: running %@", static_cast<const void*>(this), mode);
    std::lock_guard guard(private_->lock);
    for (const auto& [name, entry] : private_->modes)
        text += formatted("; %@: %@", name, entry->description());
    return text + ">";
}

} // namespace dmf
