#include "foundation/logging/AfterFork.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include <dmf/DMLog.h>

#include "platform/host/ForkGuard.h"

namespace dmf::internal {
namespace {

constinit thread_local bool gIsTelling = false;

void* tell(void*)
{
    gIsTelling = true;
    DMFLog("errors",
           "Core: process %d was forked from one that uses the library, and gets nothing from it before it "
           "starts a program anew.",
           static_cast<int>(::getpid()));
    return nullptr;
}

/// On a thread of its own, which is left behind where a lock of the log was taken as the process was copied.
void tellOnce() noexcept
{
    static constinit std::atomic<bool> isTold{false};
    if (isTold.exchange(true))
        return;
    pthread_t thread{};
    if (::pthread_create(&thread, nullptr, &tell, nullptr) != 0)
        return;
    timespec limit{};
    ::clock_gettime(CLOCK_MONOTONIC, &limit);
    ++limit.tv_sec;
    if (::pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &limit) != 0)
        ::pthread_detach(thread);
}

} // namespace

bool isRefusedAfterFork() noexcept
{
    if (!isForkedCopy())
        return false;
    tellOnce();
    return true;
}

bool mayLog() noexcept
{
    return !isForkedCopy() || gIsTelling;
}

} // namespace dmf::internal
