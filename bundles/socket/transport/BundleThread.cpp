#include "BundleThread.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

namespace dmf::socket {

bool startThread(const char* name, std::function<void()> body)
{
    sigset_t all, before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        std::thread thread(std::move(body));
        ::pthread_setname_np(thread.native_handle(), name);
        thread.detach();
    } catch (const std::system_error&) {
        started = false;
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace dmf::socket
