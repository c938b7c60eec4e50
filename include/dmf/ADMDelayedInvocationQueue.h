#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <dmf/platform/Date.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>

/// Calls to be made later on the thread of a run loop, in the order in which they fall due; one turn of the run loop
/// makes one call. Calls without a date are due at once and come before the dated ones; among calls of one date the one
/// that was scheduled first comes first.
///
/// Run-loop-bound: to be used on the thread of the run loop that it is scheduled in. That run loop keeps the queue, and
/// with it the pending calls, alive while it is scheduled there, until `removeFromRunLoop`, `invalidate`, or the end of
/// the loop's thread: whoever owns a queue invalidates it when he goes.
class DMF_EXPORT ADMDelayedInvocationQueue : public std::enable_shared_from_this<ADMDelayedInvocationQueue> {
public:
    using Invocation = std::function<void()>;
    struct Entry {
        Invocation invocation;
        std::optional<dmf::Date> date; ///< nothing: due at once
    };

    [[nodiscard]] static std::shared_ptr<ADMDelayedInvocationQueue> queue();
    ~ADMDelayedInvocationQueue();
    ADMDelayedInvocationQueue(const ADMDelayedInvocationQueue&) = delete;
    ADMDelayedInvocationQueue& operator=(const ADMDelayedInvocationQueue&) = delete;

    /// Schedules the call; ignored when it is empty.
    void schedulePerformInvocation(Invocation invocation, std::optional<dmf::Date> afterDate);

    /// Schedules `operation`, a member function without arguments, on `target`, which is kept alive until the call was
    /// made or dropped. Ignored without a target; an operation that is null throws dmf::UnrecognizedOperation, and one
    /// that the target's class does not have is refused by the compiler.
    template <class Target, class Operation>
    requires std::invocable<const Operation&, Target&>
    void schedulePerformSelector(Operation operation, std::shared_ptr<Target> target,
                                 std::optional<dmf::Date> afterDate)
    {
        if (target)
            schedulePerformInvocation(invocationOf(std::move(operation), std::move(target)), afterDate);
    }
    /// The same, `afterDelay` seconds from now.
    template <class Target, class Operation>
    requires std::invocable<const Operation&, Target&>
    void schedulePerformSelector(Operation operation, std::shared_ptr<Target> target, double afterDelay)
    {
        schedulePerformSelector(std::move(operation), std::move(target), dmf::Date::afterNow(afterDelay));
    }
    /// The same, after every call that is pending now: at the date of the last of them.
    template <class Target, class Operation>
    requires std::invocable<const Operation&, Target&>
    void schedulePerformSelectorOncePreviousPeformRequestsComplete(Operation operation, std::shared_ptr<Target> target)
    {
        schedulePerformSelector(std::move(operation), std::move(target), lastDate());
    }

    [[nodiscard]] bool hasPendingPerformRequests() const noexcept { return !delayedInvocations_.empty(); }
    /// Drops every pending call.
    void cancelPreviousPerformRequests();
    /// Makes every call that is pending now, in order, before it returns. What those calls schedule stays pending.
    void executePreviousPerformRequests();

    /// When the next call is due: the distant past for a call without a date, the distant future when there is none.
    [[nodiscard]] dmf::Date nextDelayedInvocationTimerFireDate() const;
    /// The timer that drives the queue, made on first use. The run loop owns it: one that is scheduled nowhere lives
    /// while somebody holds it, and keeps the queue.
    [[nodiscard]] std::shared_ptr<dmf::RunLoopTimer> delayedInvocationTimer();
    /// Makes the first call, if there is one, due or not, and moves the timer on to the next. For the timer.
    void delayedInvocationTimerDidFire(dmf::RunLoopTimer& timer);

    /// Ignored without a run loop.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);
    /// Drops every pending call and ends the timer: no call is made any more, save by `executePreviousPerformRequests`.
    void invalidate();

private:
    ADMDelayedInvocationQueue();
    template <class Target, class Operation>
    static Invocation invocationOf(Operation operation, std::shared_ptr<Target> target)
    {
        if constexpr (std::is_member_pointer_v<Operation> || std::is_pointer_v<Operation>) {
            if (!operation)
                throw dmf::UnrecognizedOperation("ADMDelayedInvocationQueue", "schedulePerformSelector:target:");
        }
        return [operation = std::move(operation), target = std::move(target)] { std::invoke(operation, *target); };
    }
    [[nodiscard]] std::optional<dmf::Date> lastDate() const;

    void moveTimer();

    std::weak_ptr<dmf::RunLoopTimer> delayedInvocationTimer_; // it holds the queue
    bool isValid_ = true;
    std::vector<Entry> delayedInvocations_; // in the order in which they fall due
};

/// The order of the delayed calls, made for `com_ql_dmf_insertObject`: 1 when `existing` comes after `added`, else -1,
/// or 0 when both have the same date or none. `context` is not used. Thread-safe.
[[nodiscard]] DMF_EXPORT int DMSortDelayedInvocationsByDate(const ADMDelayedInvocationQueue::Entry& existing,
                                                            const ADMDelayedInvocationQueue::Entry& added,
                                                            void* context);

/// Inserts `object` before the first element for which `comparison(element, object, context)` is 1 (descending), at the
/// end when there is none; so an object goes after those that compare the same. Reentrant.
template <class Object, class Comparison>
requires std::invocable<Comparison&, const Object&, const Object&, void*>
void com_ql_dmf_insertObject(std::vector<Object>& array, std::type_identity_t<Object> object, Comparison comparison,
                             void* context)
{
    auto place = array.begin();
    while (place != array.end() && comparison(std::as_const(*place), std::as_const(object), context) != 1)
        ++place;
    array.insert(place, std::move(object));
}
