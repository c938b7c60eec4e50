#include <dmf/ADMOperationQueue.h>

#include <dmf/ADMCallback.h>
#include <dmf/DMLog.h>
#include <dmf/IDMSchedulableOperation.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>

#include "foundation/logging/AfterFork.h"
#include "operations/CallbackPort.h"
#include "platform/host/Thread.h"

using dmf::internal::CallbackPort;
using dmf::internal::ThreadForm;

namespace {

/// A client that is busy for a while loses nothing; one that never turns its run loop stops the queue before long.
constexpr std::size_t kCallbacksWaiting = 64;
constexpr std::chrono::seconds kPatience(5);

using Operation = std::shared_ptr<IDMSchedulableOperation>;

} // namespace

/// What the queue and its thread have in common. The thread holds this and never the queue, so a queue may go anywhere.
struct ADMOperationQueue::State {
    const std::shared_ptr<CallbackPort> port = CallbackPort::create(kCallbacksWaiting, kPatience);

    mutable std::mutex operationsLock;
    std::condition_variable operationsChanged;
    std::deque<Operation> operations; // guarded by operationsLock; new ones come in front, the last one runs

    mutable std::mutex threadStateLock;
    ThreadState threadState = ThreadState::notStarted; // guarded by threadStateLock

    void startThread(const std::shared_ptr<State>& self);
    void scheduleCallback(std::shared_ptr<ADMCallback> callback);
    void work();
    [[nodiscard]] Operation nextOperation();
    void perform(IDMSchedulableOperation& operation);
    void removeLastOperation();
    [[nodiscard]] std::vector<Operation> listed() const;
    void cancelAll() const;
};

void ADMOperationQueue::State::startThread(const std::shared_ptr<State>& self)
{
    // Held while the thread starts: one that ends at once must find the state that it is to change.
    std::lock_guard guard(threadStateLock);
    if (threadState == ThreadState::running)
        return;
    const int status = dmf::internal::startThread("dmf-operations", ThreadForm::detached, [self] { self->work(); });
    if (status == 0)
        threadState = ThreadState::running;
    else
        DMFLog("errors", "ADMOperationQueue: The thread cannot be started: %d", status);
}

/// The thread's body.
void ADMOperationQueue::State::work()
{
    while (port->isValid()) {
        const Operation operation = nextOperation();
        if (!operation)
            continue;
        perform(*operation);
        removeLastOperation();
    }
    std::lock_guard guard(threadStateLock);
    threadState = ThreadState::ended;
}

/// The oldest operation, which stays listed; waits once for one. None when the wait ended for another reason.
Operation ADMOperationQueue::State::nextOperation()
{
    std::unique_lock guard(operationsLock);
    if (port->isValid() && operations.empty())
        operationsChanged.wait(guard);
    return port->isValid() && !operations.empty() ? operations.back() : nullptr;
}

void ADMOperationQueue::State::perform(IDMSchedulableOperation& operation)
{
    try {
        if (operation.isCanceled())
            return;
        auto callback = operation.performOperation();
        if (callback && !operation.isCanceled())
            scheduleCallback(std::move(callback));
    } catch (const std::exception& exception) {
        DMFLog("errors", "ADMOperationQueue: Exception %@ while perform operation: %@", exception, operation);
    }
}

void ADMOperationQueue::State::removeLastOperation()
{
    Operation removed; // goes outside the lock, whatever it does as it goes
    std::lock_guard guard(operationsLock);
    removed = std::move(operations.back());
    operations.pop_back();
}

std::vector<Operation> ADMOperationQueue::State::listed() const
{
    std::lock_guard guard(operationsLock);
    return {operations.begin(), operations.end()};
}

void ADMOperationQueue::State::cancelAll() const
{
    for (const auto& operation : listed()) {
        try {
            operation->cancel();
        } catch (const std::exception& exception) {
            DMFLog("errors", "ADMOperationQueue: Exception %@ while cancel operation: %p", exception, operation);
        }
    }
}

void ADMOperationQueue::State::scheduleCallback(std::shared_ptr<ADMCallback> callback)
{
    {
        std::lock_guard guard(operationsLock);
        if (!port->isValid())
            return;
    }
    // Without the lock: a sender that waits for room must not keep others from the operations.
    try {
        port->send(std::move(callback));
    } catch (const std::exception&) {
        // The callback is lost, as one that found no room.
    }
}

ADMOperationQueue::ADMOperationQueue() : state_(std::make_shared<State>()) {}

ADMOperationQueue::~ADMOperationQueue()
{
    invalidate();
}

void ADMOperationQueue::scheduleOperation(std::shared_ptr<IDMSchedulableOperation> operation)
{
    if (!operation || dmf::internal::isRefusedAfterFork() || !isValid())
        return;
    startThread();
    {
        std::lock_guard guard(state_->operationsLock);
        if (!isValid())
            return;
        state_->operations.push_front(std::move(operation));
    }
    state_->operationsChanged.notify_one();
}

void ADMOperationQueue::startThread()
{
    state_->startThread(state_);
}

ADMOperationQueue::ThreadState ADMOperationQueue::threadState() const
{
    std::lock_guard guard(state_->threadStateLock);
    return state_->threadState;
}

void ADMOperationQueue::scheduleCallback(std::shared_ptr<ADMCallback> callback)
{
    if (!callback || !isValid())
        return;
    const auto state = state_; // the queue may go while this waits
    state->scheduleCallback(std::move(callback));
}

void ADMOperationQueue::scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    state_->port->scheduleInRunLoop(runLoop, mode);
}

void ADMOperationQueue::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    state_->port->removeFromRunLoop(runLoop, mode);
}

std::vector<std::shared_ptr<IDMSchedulableOperation>> ADMOperationQueue::operations() const
{
    return state_->listed();
}

void ADMOperationQueue::cancelAllOperations()
{
    const auto state = state_; // an operation may release the queue as it is canceled
    state->cancelAll();
}

bool ADMOperationQueue::isValid() const
{
    return state_->port->isValid();
}

void ADMOperationQueue::invalidate()
{
    const auto state = state_; // an operation may release the queue as it is canceled
    state->cancelAll();
    CallbackPort::Callbacks dropped; // go outside the lock
    std::lock_guard guard(state->operationsLock);
    dropped = state->port->invalidate();
    state->operationsChanged.notify_all();
}
