#include "foundation/threads/WorkerRun.h"

#include <utility>

#include "platform/host/ForkGuard.h"

namespace dmf::internal {

bool WorkerRun::isEnded() const
{
    std::lock_guard guard(lock_);
    return state_ == State::ended;
}

bool WorkerRun::isOfThisThread() const
{
    std::lock_guard guard(lock_);
    return state_ != State::ended && thread_ == std::this_thread::get_id();
}

void WorkerRun::awaitBegin()
{
    if (form_ != ThreadForm::detached)
        return;
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return state_ != State::begun; });
}

void WorkerRun::enter()
{
    std::lock_guard guard(lock_);
    thread_ = std::this_thread::get_id();
    handle_ = pthread_self();
}

void WorkerRun::releaseStarter()
{
    std::lock_guard guard(lock_);
    state_ = State::working;
    changed_.notify_all();
}

void WorkerRun::end(std::uintptr_t result)
{
    std::lock_guard guard(lock_);
    state_ = State::ended;
    result_ = result;
    const bool hasThread = thread_ != std::thread::id();
    if (form_ == ThreadForm::joinable && hasThread && waiters_ == 0) {
        isReaped_ = true;
        pthread_detach(handle_);
    }
    changed_.notify_all();
}

bool WorkerRun::addWaiter()
{
    if (isForkedCopy()) // the thread is not here, and nobody ends
        return false;
    std::lock_guard guard(lock_);
    if (form_ == ThreadForm::joinable && state_ == State::ended)
        return false;
    ++waiters_;
    return true;
}

WorkerRun::Waiter::Waiter(WorkerRun& run) : run_(run), cameInTime_(run.addWaiter()) {}

WorkerRun::Waiter::~Waiter()
{
    if (!cameInTime_)
        return;
    std::unique_lock guard(run_.lock_);
    const bool isLast = --run_.waiters_ == 0;
    const bool hasThread = run_.thread_ != std::thread::id();
    if (run_.form_ != ThreadForm::joinable || run_.state_ != State::ended || !isLast || !hasThread ||
        std::exchange(run_.isReaped_, true))
        return;
    guard.unlock();
    pthread_join(run_.handle_, nullptr);
}

std::uintptr_t WorkerRun::Waiter::awaitEnd() const
{
    if (!cameInTime_)
        return 0;
    std::unique_lock guard(run_.lock_);
    run_.changed_.wait(guard, [this] { return run_.state_ == State::ended; });
    return run_.result_;
}

} // namespace dmf::internal
