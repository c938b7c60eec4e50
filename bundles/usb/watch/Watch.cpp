#include "Watch.h"

#include <pthread.h>
#include <signal.h>

#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <dmf/DMLog.h>

#include "Asker.h"
#include "Looker.h"
#include "WatchState.h"

namespace dmf::usb {

namespace {
/// Runs `work` on a thread that nobody waits for, with all signals blocked; false when there can be none.
template <class Work>
bool runApart(const char* name, Work work)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool isRunning = true;
    try {
        std::thread([name, work = std::move(work)] {
            pthread_setname_np(pthread_self(), name);
            try {
                work();
            } catch (const std::exception& error) {
                DMFLog("errors", "Discovery: USB: %@", error);
            }
        }).detach();
    } catch (const std::system_error&) {
        isRunning = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return isRunning;
}
} // namespace

std::shared_ptr<Watch> Watch::shared()
{
    static auto* const lock = new std::mutex;
    static auto* const current = new std::weak_ptr<Watch>;
    std::lock_guard guard(*lock);
    auto watch = current->lock();
    if (!watch)
        *current = watch = std::shared_ptr<Watch>(new Watch);
    return watch;
}

Watch::Watch() : state_(std::make_shared<WatchState>())
{
    const bool runs = runApart("dmf-usb", [state = state_] { Looker(*state).run(); }) &&
                      runApart("dmf-usb-ask", [state = state_] { answerQuestions(*state); });
    if (!runs) {
        state_->end(); // the one that does run, if any
        throw std::runtime_error("the threads that watch the USB cannot be started");
    }
}

Watch::~Watch()
{
    state_->end();
}

std::shared_ptr<const View> Watch::view() const
{
    return state_->view();
}

std::shared_ptr<void> Watch::listen(std::function<void()> changed)
{
    return state_->listen(std::move(changed));
}

} // namespace dmf::usb
