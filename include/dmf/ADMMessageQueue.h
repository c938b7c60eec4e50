#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMMessageQueue;

/// What a message queue calls for each object, on the run loop's thread: the queue and the object.
using ADMMessageQueueInvocation = std::function<void(ADMMessageQueue& queue, const dmf::Value& object)>;

/// Hands objects over to the thread of a run loop: any thread adds, and the run loops on which the queue is scheduled
/// call the queue's target with each object, in order, one turn draining everything that is pending, what is added
/// meanwhile included. Thread-safe.
///
/// Only the first object after the queue was empty wakes the run loops; objects that were added before it was scheduled
/// are delivered once it is. What the target throws leaves the remaining objects to the next turn.
///
/// A run loop keeps the queue alive while the queue is scheduled in it:
///
///     idle ──scheduleInRunLoop──► scheduled, kept alive ──removeFromRunLoop, or the run loop's thread ends──► idle
///       └──────────────────────────────────┴──invalidate──► invalid
///
/// so whoever owns a queue invalidates it when he goes, and an invocation that holds its owner keeps both.
class DMF_EXPORT ADMMessageQueue : public std::enable_shared_from_this<ADMMessageQueue> {
public:
    /// Empty when the invocation is empty.
    [[nodiscard]] static std::shared_ptr<ADMMessageQueue> initWithInvocation(ADMMessageQueueInvocation invocation);

    /// A queue that calls `operation` of `target`, which it does not keep alive: objects that come up after the target
    /// has gone are dropped. Empty when either is null.
    template <class Target>
    [[nodiscard]] static std::shared_ptr<ADMMessageQueue>
    initWithTarget(const std::shared_ptr<Target>& target,
                   std::type_identity_t<void (Target::*)(ADMMessageQueue&, const dmf::Value&)> operation)
    {
        if (!target || !operation)
            return nullptr;
        return initWithInvocation(
            [weak = std::weak_ptr(target), operation](ADMMessageQueue& queue, const dmf::Value& object) {
                if (const auto strong = weak.lock())
                    ((*strong).*operation)(queue, object);
            });
    }
    template <class Target>
    [[nodiscard]] static std::shared_ptr<ADMMessageQueue>
    messageQueueWithTarget(const std::shared_ptr<Target>& target,
                           std::type_identity_t<void (Target::*)(ADMMessageQueue&, const dmf::Value&)> operation)
    {
        return initWithTarget(target, operation);
    }

    ~ADMMessageQueue();
    ADMMessageQueue(const ADMMessageQueue&) = delete;
    ADMMessageQueue& operator=(const ADMMessageQueue&) = delete;

    /// Appends `object`; ignored when it is null or the queue is no longer valid.
    void addObject(dmf::Value object);
    /// Takes the oldest object; a null value when there is none.
    [[nodiscard]] dmf::Value popFirstObject();
    void removeAllObjects();

    /// Wakes the run loops to serve the queue.
    void signal();
    /// Ignored without a run loop. What is pending is delivered on its next turn.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);

    /// Ends the queue: nothing is accepted or delivered from now on, what was pending is dropped. A delivery under way
    /// on another thread is not waited for.
    void invalidate();
    [[nodiscard]] bool isValid() const;

    [[nodiscard]] const ADMMessageQueueInvocation& invocation() const noexcept { return invocation_; }
    /// One entry for each successful scheduling: a run loop scheduled in two modes stands in it twice. Removing the
    /// queue from one mode takes all entries of its run loop away; the other mode is still served.
    [[nodiscard]] std::vector<std::shared_ptr<dmf::RunLoop>> runLoops() const;
    /// The queue's source, made on first use. The run loops own it: one that is scheduled nowhere lives while somebody
    /// holds it, and keeps the queue. After `invalidate` a fresh one that is scheduled nowhere.
    [[nodiscard]] std::shared_ptr<dmf::RunLoopSource> CFSource();
    [[nodiscard]] std::string description() const;

private:
    struct Place {
        std::shared_ptr<dmf::RunLoop> runLoop;
        std::string mode;
        bool isListed; // in `runLoops`
    };
    explicit ADMMessageQueue(ADMMessageQueueInvocation invocation);
    void perform();

    const ADMMessageQueueInvocation invocation_;
    mutable std::recursive_mutex lock_;
    std::weak_ptr<dmf::RunLoopSource> source_; // guarded by lock_; it holds the queue
    std::vector<Place> places_;                // guarded by lock_
    std::deque<dmf::Value> objects_;           // guarded by lock_
    bool isValid_ = true;                      // guarded by lock_
};
