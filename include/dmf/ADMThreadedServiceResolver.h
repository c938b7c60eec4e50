#pragma once

#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMBaseServiceResolver.h>
#include <dmf/ADMMessageQueue.h>
#include <dmf/platform/Export.h>

/// A resolver that searches on a thread of its own, one attempt a second, and reports on the client's run loop.
///
///     idle --resolveService--> resolving --found at the first attempt, or time-out--> finished (one delegate call)
///                                  \------stop------> stopped (no delegate call; not to be started again)
///
/// A failed attempt stays the resolution's error: a device that is found only later is kept, but the resolution still
/// ends by its time-out. A worker that sleeps between attempts does not keep the resolver alive; once the resolver has
/// been stopped or has timed out, the worker ends after its sleep. It ends as well when the time-out has passed
/// although the run loop does not turn, and when the run loop's thread has ended; nobody can be told then. The service
/// is kept by the resolver while the worker runs, and from then on by the run loop, until it is stopped or used again.
class DMF_EXPORT ADMThreadedServiceResolver : public ADMBaseServiceResolver {
public:
    ADMThreadedServiceResolver();
    ~ADMThreadedServiceResolver() override;

    void resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout, const dmf::Dictionary& parameters,
                        std::shared_ptr<dmf::RunLoop> runLoop, const std::vector<std::string>& modes) override;
    void stop() override;
    void timeoutDidFire() override;

    /// One attempt, on the worker thread: reports through `setResolvedInfo` or `setLastError`. May block, and ends
    /// early once `isResolving` is false. Left to subclasses; this one throws dmf::UnrecognizedOperation. What it
    /// throws is logged and counts as a failed attempt.
    virtual void findService();

    /// Whether a worker thread runs for this resolver.
    [[nodiscard]] bool isValid() const;
    [[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceInfo() const;
    void setServiceInfo(std::shared_ptr<ADMServiceInfo> service);

    /// Takes the completion message off the queue, on the run loop's thread; other objects are ignored.
    void messageQueueHasObject(ADMMessageQueue& queue, const dmf::Value& object);

private:
    static void serviceResolving(std::weak_ptr<ADMThreadedServiceResolver> weakResolver);
    [[nodiscard]] bool attempt();
    [[nodiscard]] bool isWorthAnotherAttempt() const;
    void startWorker();
    void workerDidEnd();
    void handServiceToRunLoop();
    void releaseKeeper();
    [[nodiscard]] std::shared_ptr<ADMMessageQueue> messageQueue();

    // Guarded by lock().
    std::shared_ptr<ADMServiceInfo> serviceInfo_;
    std::weak_ptr<ADMServiceInfo> handedOver_; // the service once the run loop keeps it, by this source
    std::weak_ptr<dmf::RunLoopSource> keeper_;
    bool isResolvingThreadSpawned_ = false;
    double deadline_ = 0; // by the host's steady clock
    std::shared_ptr<ADMMessageQueue> messageQueue_;
};
