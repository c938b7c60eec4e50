#include <dmf/ADMWorkerThread.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include "foundation/threads/WorkerRun.h"

struct ADMWorkerThread::State {
    mutable std::mutex lock;
    bool isDetached = false;   // guarded by lock
    std::shared_ptr<Run> last; // guarded by lock
};

ADMWorkerThread::ADMWorkerThread() : state_(std::make_unique<State>()) {}

ADMWorkerThread::~ADMWorkerThread() = default;

void ADMWorkerThread::setRunDetached()
{
    std::lock_guard guard(state_->lock);
    state_->isDetached = true;
}

std::shared_ptr<ADMWorkerThread::Run> ADMWorkerThread::lastRun() const
{
    std::lock_guard guard(state_->lock);
    return state_->last;
}

std::int32_t ADMWorkerThread::start()
{
    using dmf::internal::ThreadForm;
    std::shared_ptr<Run> run;
    std::int32_t status = ENOMEM;
    try {
        std::unique_lock guard(state_->lock);
        if (state_->last && !state_->last->isEnded())
            return -1;
        auto next = std::make_shared<Run>(state_->isDetached ? ThreadForm::detached : ThreadForm::joinable);
        run = state_->last = std::move(next);
        guard.unlock();
        status = dmf::internal::startThread(
            threadName(), run->form(),
            [this, kept = weak_from_this().lock(), run]() mutable { enter(this, std::move(kept), *run); });
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
void ADMWorkerThread::enter(ADMWorkerThread* worker, std::shared_ptr<ADMWorkerThread> keptAlive, Run& run)
{
    run.enter();
    std::uintptr_t result = 0;
    try {
        result = worker->threadEntry();
    } catch (const std::exception& exception) {
        if (DMIsLoggingEnabled())
            DMFLog("errors", "ADMWorkerThread: NSException thrown. %@...", exception);
    }
    keptAlive.reset();
    run.end(result);
}

std::uintptr_t ADMWorkerThread::stop()
{
    const auto run = lastRun();
    if (!run || run->isOfThisThread()) {
        signalForStop();
        return 0;
    }
    const dmf::internal::WorkerRun::Waiter waiter(*run); // before the request, which may be what ends it
    run->requestStop();
    signalForStop();
    return waiter.awaitEnd();
}

void ADMWorkerThread::signalForStop()
{
    if (const auto run = lastRun())
        run->requestStop();
}

bool ADMWorkerThread::isRunning() const noexcept
{
    const auto run = lastRun();
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
    if (const auto run = lastRun(); run && run->isOfThisThread())
        run->releaseStarter();
}

bool ADMWorkerThread::isStopRequested() const noexcept
{
    const auto run = lastRun();
    return run && run->isStopRequested();
}

bool ADMWorkerThread::isCurrentThread() const noexcept
{
    const auto run = lastRun();
    return run && run->isOfThisThread();
}

const char* ADMWorkerThread::threadName() const noexcept
{
    return "dmf-worker";
}
