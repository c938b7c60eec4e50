#pragma once

#include <atomic>
#include <exception>

namespace dmf::internal {

/// One call of RunLoop::runMode; belongs to the thread that runs.
struct RunFrame {
    const std::atomic<bool>& stopRequested;
    const double deadline; // on the steady clock
    const bool returnAfterSourceHandled;
    bool isServing = false; // callbacks are being made for this run: what is turned inside them is somebody else's
    bool hasHandled = false;
    bool wasTurned = false; // in this turn: the mode's items were looked at
    int hostDepth = 0;      // GLib's, where this run turns a main context
    std::exception_ptr thrown = nullptr;

    [[nodiscard]] bool mustEnd() const noexcept
    {
        return stopRequested.load() || (returnAfterSourceHandled && hasHandled);
    }
};

} // namespace dmf::internal
