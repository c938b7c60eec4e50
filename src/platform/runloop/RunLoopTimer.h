#pragma once

#include <dmf/platform/RunLoop.h>

#include <atomic>
#include <functional>
#include <memory>

#include "platform/runloop/RunFrame.h"
#include "platform/runloop/RunLoopItem.h"

namespace dmf {

struct RunLoopTimer::Private : internal::RunLoopItem {
    using Callback = std::function<void(RunLoopTimer&)>;
    Private(double every, Repeat again, Callback function);

    /// Fires the timer if it is due. A run that serves it is told before.
    void fireIfDue(double now, internal::RunFrame* frame);
    void setDate(Date date); // with lock held
    void moveOn(double now); // with lock held
    void publishDeadline();  // with lock held
    void endFiring();

    RunLoopTimer* owner = nullptr; // alive while a mode holds the timer
    const double interval;
    const Repeat repeat;
    Date fireDate;                            // guarded by lock
    double deadline = 0;                      // guarded by lock; steady clock
    bool isFiring = false;                    // guarded by lock
    std::atomic<double> visibleDeadline;      // what the modes see: never, while it fires
    std::shared_ptr<const Callback> callback; // guarded by lock; none once invalid
};

} // namespace dmf
