#include <dmf/ADMWorkerThread.h>

#include <pthread.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include "foundation/threads/HandOver.h"
#include "platform/host/Thread.h"

using dmf::internal::HandOver;
using dmf::internal::ThreadForm;

/// One start of a worker. A thread holds its own, so that what it does at its end never touches a later start.
struct ADMWorkerThread::Run {
    explicit Run(ThreadForm of) : form(of) {}

    const ThreadForm form;
    std::thread::id thread; // set by the thread before anything of the worker's happens on it
    pthread_t handle{};     // of a joinable thread; set by the starter
    bool starterIsReleased = false;
    bool hasFinished = false;
    bool isJoined = false; // `stop` joins the thread, or is about to
};

struct ADMWorkerThread::State {
    std::atomic<bool> isDetached{false};
    std::atomic<bool> isStopRequested{false};
    // The two hand-overs of the detached form: the starter waits for the begin of the work, `stop` for its end.
    HandOver begun{HandOver::State::taken};
    HandOver ended{HandOver::State::free};

    std::mutex lock;
    std::shared_ptr<Run> run;  // guarded by lock, with its content; the last one started
    bool isRunning = false;    // guarded by lock
    std::uintptr_t result = 0; // guarded by lock

    [[nodiscard]] std::shared_ptr<Run> runOfThisThread();
    [[nodiscard]] std::shared_ptr<Run> beginRun();
    void cancelRun(Run& run);
    void releaseStarter(Run& run);
    void finishRun(Run& run, std::uintptr_t value);
};

/// The run whose work the calling thread is doing, if any.
std::shared_ptr<ADMWorkerThread::Run> ADMWorkerThread::State::runOfThisThread()
{
    std::lock_guard guard(lock);
    return run && !run->hasFinished && run->thread == std::this_thread::get_id() ? run : nullptr;
}

std::shared_ptr<ADMWorkerThread::Run> ADMWorkerThread::State::beginRun()
{
    std::shared_ptr<Run> started;
    {
        std::lock_guard guard(lock);
        if (isRunning)
            return nullptr;
        isRunning = true;
        result = 0;
        run = std::make_shared<Run>(isDetached ? ThreadForm::detached : ThreadForm::joinable);
        started = run;
    }
    isStopRequested = false;
    if (started->form == ThreadForm::detached)
        ended.lock(); // at most as long as the thread before takes from clearing `isRunning` to releasing it
    return started;
}

void ADMWorkerThread::State::cancelRun(Run& cancelled)
{
    {
        std::lock_guard guard(lock);
        isRunning = false;
    }
    if (cancelled.form == ThreadForm::detached)
        ended.unlock();
}

void ADMWorkerThread::State::releaseStarter(Run& released)
{
    {
        std::lock_guard guard(lock);
        if (std::exchange(released.starterIsReleased, true))
            return;
    }
    if (released.form == ThreadForm::detached)
        begun.unlock();
}

void ADMWorkerThread::State::finishRun(Run& finished, std::uintptr_t value)
{
    releaseStarter(finished);
    {
        std::lock_guard guard(lock);
        if (std::exchange(finished.hasFinished, true))
            return;
        result = value;
        isRunning = false;
        // Nobody joins a thread that ends before `stop`, so it takes care of itself.
        if (finished.form == ThreadForm::joinable && !finished.isJoined)
            pthread_detach(pthread_self());
    }
    if (finished.form == ThreadForm::detached)
        ended.unlock();
}

ADMWorkerThread::ADMWorkerThread() : state_(std::make_shared<State>()) {}

ADMWorkerThread::~ADMWorkerThread() = default;

void ADMWorkerThread::setRunDetached()
{
    state_->isDetached = true;
}

std::int32_t ADMWorkerThread::start()
{
    State& state = *state_;
    const auto run = state.beginRun();
    if (!run)
        return -1;

    pthread_t handle{};
    auto body = [this, keptAlive = weak_from_this().lock(), run] { enter(*run); };
    const std::int32_t status = dmf::internal::startThread(threadName(), run->form, std::move(body), &handle);
    if (status != 0) {
        state.cancelRun(*run);
        return status;
    }
    if (run->form == ThreadForm::detached) {
        state.begun.lock();
    } else {
        std::lock_guard guard(state.lock);
        run->handle = handle;
    }
    return 0;
}

/// The thread's body.
void ADMWorkerThread::enter(Run& run)
{
    const auto state = state_; // a worker that nobody keeps alive may go as soon as the end of its work is told
    {
        std::lock_guard guard(state->lock);
        run.thread = std::this_thread::get_id();
    }
    std::uintptr_t exitValue = 0;
    try {
        exitValue = threadEntry();
    } catch (const std::exception& exception) {
        if (DMIsLoggingEnabled())
            DMFLog("errors", "ADMWorkerThread: NSException thrown. %@...", exception);
    }
    state->finishRun(run, exitValue);
}

std::uintptr_t ADMWorkerThread::stop()
{
    const auto state = state_; // likewise
    std::shared_ptr<Run> awaited;
    const bool isOwnThread = isCurrentThread();
    if (!isOwnThread) {
        std::lock_guard guard(state->lock);
        awaited = state->run;
        if (awaited && awaited->form == ThreadForm::joinable &&
            (!state->isRunning || std::exchange(awaited->isJoined, true)))
            awaited = nullptr;
    }
    signalForStop();
    if (!awaited)
        return 0;

    if (awaited->form == ThreadForm::joinable) {
        pthread_join(awaited->handle, nullptr);
    } else {
        state->ended.lock();
        state->ended.unlock();
    }
    std::lock_guard guard(state->lock);
    return state->result;
}

void ADMWorkerThread::signalForStop()
{
    state_->isStopRequested = true;
}

bool ADMWorkerThread::isRunning() const noexcept
{
    std::lock_guard guard(state_->lock);
    return state_->isRunning;
}

std::uintptr_t ADMWorkerThread::run()
{
    throw dmf::UnrecognizedOperation("ADMWorkerThread", "run");
}

std::uintptr_t ADMWorkerThread::threadEntry()
{
    releaseStarter();
    const std::uintptr_t result = run();
    finish(result);
    return result;
}

void ADMWorkerThread::releaseStarter()
{
    if (const auto run = state_->runOfThisThread())
        state_->releaseStarter(*run);
}

void ADMWorkerThread::finish(std::uintptr_t result)
{
    const auto state = state_;
    if (const auto run = state->runOfThisThread())
        state->finishRun(*run, result);
}

bool ADMWorkerThread::isStopRequested() const noexcept
{
    return state_->isStopRequested;
}

bool ADMWorkerThread::isCurrentThread() const noexcept
{
    return state_->runOfThisThread() != nullptr;
}

const char* ADMWorkerThread::threadName() const noexcept
{
    return "dmf-worker";
}
