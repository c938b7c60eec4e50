#pragma once

#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMBaseServiceResolver.h>
#include <dmf/ADMMessageQueue.h>
#include <dmf/platform/Export.h>

/// A resolver that searches on a thread of its own, one attempt a second, and reports on the client's run loop.
///
///     idle ──resolveService──► resolving ──found at the first attempt, or time-out──► ended (one delegate call)
///                                  └──stop, or a later start──► dropped (no delegate call)
///
/// A failed attempt stays the resolution's error: a device that is found only later is kept, but the resolution still
/// ends by its time-out. Each start has a thread, a timer and a message queue of its own. So a resolver can be started
/// again at any time, on another run loop too, while the thread of an earlier start is still busy with its device;
/// that thread's findings are dropped. A worker that sleeps between attempts neither keeps the resolver alive nor wakes
/// before the next attempt, unless the resolution ends. It ends as well when the time-out has passed although the run
/// loop does not turn, and when the run loop's thread has ended; nobody can be told then. When no thread can be
/// started, the delegate is told of the failure at the run loop's next turn.
class DMF_EXPORT ADMThreadedServiceResolver : public ADMBaseServiceResolver {
public:
    ADMThreadedServiceResolver();
    ~ADMThreadedServiceResolver() override;

    void resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout, const dmf::Dictionary& parameters,
                        std::shared_ptr<dmf::RunLoop> runLoop, const std::vector<std::string>& modes) override;
    void timeoutDidFire() override;

    /// One attempt, on the worker thread: reports through `setResolvedInfo` or `setLastError`. May block, and ends
    /// early once `isResolving` is false. Left to subclasses; this one throws dmf::UnrecognizedOperation. What it
    /// throws is logged and counts as a failed attempt.
    virtual void findService();

    /// Whether a worker thread runs for the latest start.
    [[nodiscard]] bool isValid() const;
    [[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceInfo() const;
    void setServiceInfo(std::shared_ptr<ADMServiceInfo> service);

    /// Takes the completion message off the queue, on the run loop's thread; other objects are ignored.
    void messageQueueHasObject(ADMMessageQueue& queue, const dmf::Value& object);

private:
    static void serviceResolving(const std::weak_ptr<ADMThreadedServiceResolver>& weakResolver,
                                 const std::shared_ptr<dmf::internal::ResolverStart>& start);
    [[nodiscard]] std::shared_ptr<ADMMessageQueue> queueFor(const std::shared_ptr<dmf::internal::ResolverStart>& start);
    void startWorker(const std::shared_ptr<dmf::internal::ResolverStart>& start);
    [[nodiscard]] bool attempt(const std::shared_ptr<dmf::internal::ResolverStart>& start);
    [[nodiscard]] bool isWorthAnAttempt(const dmf::internal::ResolverStart& start) const;
};
