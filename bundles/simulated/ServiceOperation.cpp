#include "ServiceOperation.h"

#include <algorithm>
#include <exception>

#include <dmf/ADMInvocationCallback.h>
#include <dmf/DMKeys.h>

namespace dmf::simulated {

namespace {
constexpr double kNoLimit = 1800; // seconds; from here on channels wait as long as it takes
}

ServiceOperation::ServiceOperation(Initializer&& initializer, std::weak_ptr<CountedQueue> queue)
    : SimulatedOperation(std::move(initializer)), queue_(std::move(queue))
{
}

/// A service that is scheduled elsewhere meanwhile does not know where its operation was bound before.
ServiceOperation::~ServiceOperation()
{
    if (const auto queue = queue_.lock()) {
        for (const auto& [runLoop, mode] : places_)
            queue->unbind(runLoop, mode);
    }
}

std::shared_ptr<ServiceOperation> ServiceOperation::self()
{
    return std::static_pointer_cast<ServiceOperation>(shared_from_this());
}

std::shared_ptr<OperationOwner> ServiceOperation::owner() const
{
    return std::dynamic_pointer_cast<OperationOwner>(delegate());
}

Value ServiceOperation::result() const
{
    std::lock_guard guard(lock_);
    return result_;
}

void ServiceOperation::scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    const auto queue = queue_.lock();
    std::lock_guard guard(lock_);
    if (queue && places_.emplace(runLoop, mode).second)
        queue->bind(runLoop, std::string(mode));
}

void ServiceOperation::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    const auto queue = queue_.lock();
    std::lock_guard guard(lock_);
    if (queue && places_.erase({runLoop, std::string(mode)}) > 0)
        queue->unbind(runLoop, std::string(mode));
}

void ServiceOperation::scheduleOperation()
{
    {
        std::lock_guard guard(lock_);
        SimulatedOperation::scheduleOperation();
        ++run_;
        result_ = {};
        changed_.notify_all(); // the work of an earlier run is not wanted any more
    }
    if (const auto queue = queue_.lock())
        queue->queue().scheduleOperation(shared_from_this());
}

void ServiceOperation::cancel()
{
    {
        std::lock_guard guard(lock_);
        if (!isActive())
            return;
        SimulatedOperation::cancel();
        setActive(false);
        // Nobody else would say so: the queue leaves a canceled operation out, or drops its callback.
        setFinished(true);
        changed_.notify_all();
    }
    if (const auto told = owner())
        told->operationWasCanceled(*this);
}

bool ServiceOperation::isWanted(Run run) const
{
    std::lock_guard guard(lock_);
    return run == run_ && !isCanceled();
}

double ServiceOperation::secondsLeft() const
{
    const auto limit = limitDate();
    return limit ? std::clamp(limit->timeIntervalSince(Date::now()), 0.0, kNoLimit) : kNoLimit;
}

bool ServiceOperation::wait(Run run, double seconds)
{
    const bool isInTime = !limitDate() || seconds <= secondsLeft();
    const std::chrono::duration<double> waited(isInTime ? seconds : secondsLeft());
    std::unique_lock guard(lock_);
    const bool isUnwanted =
        changed_.wait_until(guard, Clock::now() + std::chrono::duration_cast<Clock::duration>(waited),
                            [&] { return run != run_ || isCanceled(); });
    return isInTime && !isUnwanted;
}

ServiceOperation::Outcome ServiceOperation::failure(ChannelError code, std::string_view description)
{
    return {{},
            {{std::string(kDMErrorCode), static_cast<std::int32_t>(code)},
             {std::string(kDMErrorDescription), description}}};
}

std::shared_ptr<ADMCallback> ServiceOperation::performOperation()
{
    Run run = 0;
    {
        // One that was canceled and scheduled again stands in the queue twice.
        std::lock_guard guard(lock_);
        if (begun_ == run_)
            return nullptr;
        run = begun_ = run_;
    }
    Outcome outcome;
    try {
        outcome = work(run);
    } catch (const std::exception& exception) {
        outcome = failure(ChannelError::failed, exception.what()); // a run that never ended would hold its client
    }
    return ADMInvocationCallback::callbackWithInvocation(
        [self = self(), run, outcome = std::move(outcome)] { self->finish(run, outcome); });
}

/// On the client's run loop.
void ServiceOperation::finish(Run run, const Outcome& outcome)
{
    {
        std::lock_guard guard(lock_);
        if (run != run_ || isCanceled())
            return;
        result_ = outcome.result;
        setError(outcome.error);
        setOperationSucceed(outcome.error.empty());
        setActive(false);
        setFinished(true);
    }
    if (const auto told = owner())
        told->operationDidFinish(*this);
}

void ServiceOperation::report(Run run, Dictionary parameters)
{
    const auto tell = [self = self(), run, parameters = std::move(parameters)] {
        const auto told = self->owner();
        if (told && self->isWanted(run))
            told->operationDidReadParameters(*self, parameters);
    };
    if (const auto queue = queue_.lock())
        queue->queue().scheduleCallback(ADMInvocationCallback::callbackWithInvocation(tell));
}

} // namespace dmf::simulated
