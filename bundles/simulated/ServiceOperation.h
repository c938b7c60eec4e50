#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <dmf/ADMDuplexDataChannel.h>

#include "CountedQueue.h"
#include "Script.h"
#include "SimulatedStatusService.h"

namespace dmf::simulated {

class ServiceOperation;

/// What an operation tells the service that it was scheduled through.
class OperationOwner {
public:
    virtual ~OperationOwner() = default;
    virtual void operationDidFinish(ServiceOperation& operation) = 0;
    virtual void operationWasCanceled(ServiceOperation& operation) = 0;
    virtual void operationDidReadParameters(ServiceOperation& operation, const Dictionary& parameters) = 0;
};

/// What the service's operations have in common: runs, deadlines, being canceled, and the way back to the client.
///
/// A run ends on the client's run loop, so that a finished operation has told everything; one that is canceled ends at
/// once, and what its work still does is not reported. It may be scheduled again meanwhile: then the earlier run's
/// outcome is told apart by its number.
class ServiceOperation : public SimulatedOperation {
public:
    using Run = std::uint64_t;

    ServiceOperation(Initializer&& initializer, std::weak_ptr<CountedQueue> queue);
    ~ServiceOperation() override;

    [[nodiscard]] Value result() const override;
    void scheduleOperation() override;
    void cancel() override;
    void scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode) override;
    void removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode) override;
    [[nodiscard]] std::shared_ptr<ADMCallback> performOperation() override;
    /// Has the runs that are scheduled from now on, and what is bound to run loops from now on, go to another queue.
    void setQueue(std::weak_ptr<CountedQueue> queue);

protected:
    struct Outcome {
        Value result;
        Dictionary error;
    };
    /// Does the work of the run, on the queue's thread.
    [[nodiscard]] virtual Outcome work(Run run) = 0;
    [[nodiscard]] static Outcome failure(ChannelError code, std::string_view description);

    /// Whether the run's outcome is still wanted.
    [[nodiscard]] bool isWanted(Run run) const;
    /// Lets time pass; false when the run is canceled meanwhile, or when the limit date comes first.
    bool wait(Run run, double seconds);
    /// Seconds until the limit date, at least 0; without one, as many as mean no limit to channels.
    [[nodiscard]] double secondsLeft() const;
    /// Has the client told of the parameters.
    void report(Run run, Dictionary parameters);
    [[nodiscard]] std::shared_ptr<ServiceOperation> self();

private:
    [[nodiscard]] std::shared_ptr<OperationOwner> owner() const;
    void finish(Run run, const Outcome& outcome);
    /// Has `report` called on the run loops that wait for the run, if it is still wanted.
    void send(Run run, std::function<void()> report);

    struct Place {
        std::shared_ptr<RunLoop> runLoop;
        std::string mode;
        std::weak_ptr<CountedQueue> queue; // that is bound there for this operation
    };

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::weak_ptr<CountedQueue> queue_;      // guarded by lock_; it holds the operation while it is listed
    std::weak_ptr<CountedQueue> queueOfRun_; // guarded by lock_; by which the current run reports
    std::vector<Place> places_;              // guarded by lock_
    Value result_;                           // guarded by lock_
    Run run_ = 0;                            // guarded by lock_
    Run begun_ = 0;                          // guarded by lock_
};

} // namespace dmf::simulated
