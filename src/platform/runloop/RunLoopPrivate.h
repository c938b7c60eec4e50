#pragma once

#include <dmf/platform/RunLoop.h>

#include <glib.h>

#include <atomic>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace dmf {
namespace internal {

class RunLoopMode;

/// What sources and timers have in common: they are valid or not, and stand in modes. An item's lock is taken before
/// a mode's, and neither is held while a callback runs.
struct RunLoopItem {
    std::mutex lock;
    std::atomic<bool> isValid{true};                      // changed under lock
    std::vector<std::weak_ptr<RunLoopMode>> modesStoodIn; // guarded by lock
};

/// One call of RunLoop::runMode; belongs to the thread that runs.
struct RunFrame {
    const std::atomic<bool>& stopRequested;
    const double deadline; // on the steady clock
    const bool returnAfterSourceHandled;
    const int dispatchDepth; // GLib's, at the call
    bool wasTurned = false;  // the mode's sources were looked at
    bool hasHandled = false;
    std::exception_ptr thrown = nullptr;

    [[nodiscard]] bool mustEnd() const noexcept
    {
        return stopRequested.load() || (returnAfterSourceHandled && hasHandled);
    }
};

/// The sources and timers of one mode of one run loop, and the main context that turns them: one GSource looks after
/// all of them. What passes between threads passes under `lock_` or through atomics of our own, never by way of GLib.
class RunLoopMode : public std::enable_shared_from_this<RunLoopMode> {
public:
    using SourceItem = std::shared_ptr<RunLoopSource::Private>;
    using TimerItem = std::shared_ptr<RunLoopTimer::Private>;

    /// Takes over the reference to `context`.
    [[nodiscard]] static std::shared_ptr<RunLoopMode> create(GMainContext* context);
    explicit RunLoopMode(GMainContext* context);
    ~RunLoopMode();
    RunLoopMode(const RunLoopMode&) = delete;
    RunLoopMode& operator=(const RunLoopMode&) = delete;

    /// The modes hold their items; the item's own object is what they keep alive.
    void add(const SourceItem& source);
    void add(const TimerItem& timer);
    void remove(const SourceItem& source);
    void remove(const TimerItem& timer);
    /// Lets go of the items and of the context's source. For the run loop's thread.
    void end();

    /// Makes the context look at the mode again before it next waits. Thread-safe.
    void wake();
    /// To be called before looking at what `wake` announces: from here on the next one counts again.
    void beginLooking() { wakeIsPending_.exchange(false); }
    [[nodiscard]] bool isEmpty() const;
    [[nodiscard]] std::string description() const;

    /// One turn of the context under `frame`. For the run loop's thread.
    void iterate(RunFrame& frame, bool mayWait);
    /// Makes the run's frame known to the context's source, and hands back the one before.
    RunFrame* setFrame(RunFrame* frame) noexcept { return std::exchange(frame_, frame); }
    [[nodiscard]] GMainContext* context() const noexcept { return context_; }

private:
    struct Source;
    static gboolean prepare(GSource* source, gint* timeout);
    static gboolean check(GSource* source);
    static gboolean dispatch(GSource* source, GSourceFunc function, gpointer data) noexcept;
    static void finalize(GSource* source);
    static RunLoopMode& of(GSource* source) noexcept;
    void attach();

    template <class Item>
    void addItem(std::vector<Item>& list, const Item& item);
    template <class Item>
    void removeItem(std::vector<Item>& list, const Item& item);
    template <class Item>
    [[nodiscard]] bool holds(const std::vector<Item>& list, const Item& item) const;

    [[nodiscard]] bool isReady(double now) const;
    [[nodiscard]] double nextDeadline() const;
    void serve(RunFrame* frame);
    void serveSources(RunFrame* frame);
    void serveTimers(RunFrame* frame);

    GMainContext* const context_;
    GSource* source_ = nullptr; // for the thread that makes the mode and the one that ends it
    RunFrame* frame_ = nullptr; // for the run loop's thread
    std::atomic<bool> wakeIsPending_{false};
    mutable std::mutex lock_;
    std::vector<SourceItem> sources_; // guarded by lock_
    std::vector<TimerItem> timers_;   // guarded by lock_
    bool hasEnded_ = false;           // guarded by lock_
};

} // namespace internal

struct RunLoopSource::Private : internal::RunLoopItem {
    explicit Private(std::function<void()> function);

    /// Performs the source if it is signalled, and says whether it was.
    bool performIfSignalled(internal::RunFrame* frame);

    std::atomic<bool> isSignalled{false};
    std::shared_ptr<const std::function<void()>> perform; // guarded by lock; none once invalid
};

struct RunLoopTimer::Private : internal::RunLoopItem {
    using Callback = std::function<void(RunLoopTimer&)>;
    Private(double every, Repeat again, Callback function);

    /// Fires the timer if it is due, and says whether it was.
    bool fireIfDue(double now, internal::RunFrame* frame);
    void setDate(Date date); // with lock held
    void moveOn(double now); // with lock held
    void publishDeadline();  // with lock held
    void endFiring();
    void wakeModes();

    RunLoopTimer* owner = nullptr; // alive while a mode holds the timer
    const double interval;
    const Repeat repeat;
    Date fireDate;                            // guarded by lock
    double deadline = 0;                      // guarded by lock; steady clock
    bool isFiring = false;                    // guarded by lock
    std::atomic<double> visibleDeadline;      // what the modes see: never, while it fires
    std::shared_ptr<const Callback> callback; // guarded by lock; none once invalid
};

struct RunLoop::Private {
    class Run;

    /// Takes over the reference to `context`, and makes it the thread's default when `pushed`.
    Private(GMainContext* context, bool pushed);

    /// The mode of that name, or none once the thread has ended.
    [[nodiscard]] std::shared_ptr<internal::RunLoopMode> mode(std::string_view name);
    [[nodiscard]] std::shared_ptr<internal::RunLoopMode> existingMode(std::string_view name);
    void wakeAll();
    void end();

    const std::thread::id thread = std::this_thread::get_id();
    std::atomic<bool> stopRequested{false};
    std::mutex lock;
    std::map<std::string, std::shared_ptr<internal::RunLoopMode>, std::less<>> modes; // guarded by lock
    std::vector<std::string> running;                                                 // guarded by lock
    bool hasEnded = false;                                                            // guarded by lock
    GMainContext* pushedContext = nullptr;                                            // for the run loop's thread
};

} // namespace dmf
