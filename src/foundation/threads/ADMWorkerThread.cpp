#include <dmf/ADMWorkerThread.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include "foundation/threads/WorkerRun.h"

using dmf::internal::ThreadForm;
using dmf::internal::WorkerRun;

struct ADMWorkerThread::State {
    mutable std::mutex lock;
    bool isDetached = false; // guarded by lock
    Start last;              // guarded by lock
};

ADMWorkerThread::ADMWorkerThread() : state_(std::make_unique<State>()) {}

ADMWorkerThread::~ADMWorkerThread() = default;

void ADMWorkerThread::setRunDetached()
{
    std::lock_guard guard(state_->lock);
    state_->isDetached = true;
}

ADMWorkerThread::Start ADMWorkerThread::lastStart() const
{
    std::lock_guard guard(state_->lock);
    return state_->last;
}

std::int32_t ADMWorkerThread::start()
{
    Start run;
    std::int32_t status = ENOMEM;
    try {
        std::unique_lock guard(state_->lock);
        if (state_->last && !state_->last->isEnded())
            return -1;
        auto next = std::make_shared<WorkerRun>(state_->isDetached ? ThreadForm::detached : ThreadForm::joinable);
        run = state_->last = std::move(next);
        guard.unlock();
        status = dmf::internal::startThread(
            threadName(), run->form(),
            [this, kept = weak_from_this().lock(), run]() mutable { enter(this, std::move(kept), run); });
    } catch (const std::bad_alloc&) { // the status says so
    }
    if (status != 0) {
        if (run)
            run->end(0);
        return status;
    }
    run->awaitBegin();
    return 0;
}

/// The thread's body. Nothing of the worker is touched after it was let go.
void ADMWorkerThread::enter(ADMWorkerThread* worker, std::shared_ptr<ADMWorkerThread> keptAlive, const Start& run)
{
    run->enter();
    std::uintptr_t result = 0;
    try {
        result = worker->threadEntry();
    } catch (const std::exception& exception) {
        if (DMIsLoggingEnabled())
            DMFLog("errors", "ADMWorkerThread: NSException thrown. %@...", exception);
    }
    keptAlive.reset();
    run->end(result);
}

std::uintptr_t ADMWorkerThread::stop()
{
    const auto run = lastStart();
    if (!run || run->isOfThisThread()) {
        signalForStop();
        return 0;
    }
    const WorkerRun::Waiter waiter(*run); // before the request, which may be what ends it
    run->requestStop();
    signalForStop();
    return waiter.awaitEnd();
}

void ADMWorkerThread::awaitEnd(const Start& start)
{
    if (start && !start->isOfThisThread())
        (void)WorkerRun::Waiter(*start).awaitEnd();
}

void ADMWorkerThread::signalForStop()
{
    if (const auto run = lastStart())
        run->requestStop();
}

bool ADMWorkerThread::isRunning() const noexcept
{
    const auto run = lastStart();
    return run && !run->isEnded();
}

std::uintptr_t ADMWorkerThread::run()
{
    throw dmf::UnrecognizedOperation("ADMWorkerThread", "run");
}

std::uintptr_t ADMWorkerThread::threadEntry()
{
    releaseStarter();
    return run();
}

void ADMWorkerThread::releaseStarter()
{
    if (const auto run = lastStart(); run && run->isOfThisThread())
        run->releaseStarter();
}

bool ADMWorkerThread::isStopRequested() const noexcept
{
    const auto run = lastStart();
    return run && run->isStopRequested();
}

bool ADMWorkerThread::isCurrentThread() const noexcept
{
    const auto run = lastStart();
    return run && run->isOfThisThread();
}

const char* ADMWorkerThread::threadName() const noexcept
{
    return "dmf-worker";
}
