#include "discovery/BackEndThread.h"

#include <dmf/ADMServiceDiscoveryBase.h>

#include <utility>

#include "platform/host/Thread.h"

namespace dmf::internal {

namespace {
constinit thread_local bool gIsBackEndThread = false;
} // namespace

std::int32_t startBackEndThread(std::function<void()> body)
{
    return startThread("dmf-discover", ThreadForm::detached, [body = std::move(body)]() mutable {
        gIsBackEndThread = true;
        body();
    });
}

bool isBackEndThread()
{
    if (gIsBackEndThread)
        return true;
    const auto loop = ADMServiceDiscoveryBase::runloop();
    return loop && loop->isCurrent();
}

} // namespace dmf::internal
