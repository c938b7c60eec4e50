#pragma once

#include <dmf/platform/RunLoop.h>

#include <atomic>
#include <functional>
#include <memory>

#include "platform/runloop/RunFrame.h"
#include "platform/runloop/RunLoopItem.h"

namespace dmf {

struct RunLoopSource::Private : internal::RunLoopItem {
    explicit Private(std::function<void()> function);

    /// Performs the source if it is signalled. A run that serves it is told before.
    void performIfSignalled(internal::RunFrame* frame);

    std::atomic<bool> isSignalled{false};
    std::shared_ptr<const std::function<void()>> perform; // guarded by lock; none once invalid
};

} // namespace dmf
