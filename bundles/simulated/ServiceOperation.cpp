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
    for (const auto& place : places_) {
        if (const auto queue = place.queue.lock())
            queue->unbind(place.runLoop, place.mode);
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
    std::shared_ptr<CountedQueue> queue; // may be the last reference, and goes outside the lock
    std::lock_guard guard(lock_);
    queue = queue_.lock();
    const auto isBound = std::any_of(places_.begin(), places_.end(), [&](const Place& it) {
        return it.runLoop == runLoop && it.mode == mode && !it.queue.owner_before(queue_) &&
               !queue_.owner_before(it.queue);
    });
    if (!queue || isBound)
        return;
    places_.push_back({runLoop, std::string(mode), queue});
    queue->bind(runLoop, std::string(mode));
}

void ServiceOperation::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    std::vector<Place> left;
    {
        std::lock_guard guard(lock_);
        const auto kept = std::stable_partition(
            places_.begin(), places_.end(), [&](const Place& it) { return it.runLoop != runLoop || it.mode != mode; });
        left.assign(std::make_move_iterator(kept), std::make_move_iterator(places_.end()));
        places_.erase(kept, places_.end());
    }
    for (const auto& place : left) {
        if (const auto queue = place.queue.lock())
            queue->unbind(place.runLoop, place.mode);
    }
}

void ServiceOperation::setQueue(std::weak_ptr<CountedQueue> queue)
{
    std::lock_guard guard(lock_);
    queue_.swap(queue);
}

void ServiceOperation::scheduleOperation()
{
    std::shared_ptr<CountedQueue> queue;
    {
        std::lock_guard guard(lock_);
        SimulatedOperation::scheduleOperation();
        ++run_;
        result_ = {};
        queueOfRun_ = queue_;
        queue = queue_.lock();
        changed_.notify_all(); // the work of an earlier run is not wanted any more
    }
    if (queue)
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

/// The outcome goes to the queue of the run, which need not be the one whose thread does the work: an operation that
/// was canceled and is scheduled again stands in two queues, or twice in one.
std::shared_ptr<ADMCallback> ServiceOperation::performOperation()
{
    Run run = 0;
    {
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
    send(run, [self = self(), run, outcome = std::move(outcome)] { self->finish(run, outcome); });
    return nullptr;
}

void ServiceOperation::send(Run run, std::function<void()> report)
{
    std::shared_ptr<CountedQueue> queue;
    {
        std::lock_guard guard(lock_);
        if (run == run_ && !isCanceled())
            queue = queueOfRun_.lock();
    }
    if (queue)
        queue->queue().scheduleCallback(ADMInvocationCallback::callbackWithInvocation(std::move(report)));
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
    send(run, [self = self(), run, parameters = std::move(parameters)] {
        const auto told = self->owner();
        if (told && self->isWanted(run))
            told->operationDidReadParameters(*self, parameters);
    });
}

} // namespace dmf::simulated
