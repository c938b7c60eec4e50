#pragma once

#include <functional>
#include <memory>

#include "View.h"

namespace dmf::usb {

class WatchState;

/// Watches the USB on a thread of its own, and asks devices for their IDs on another: both wait for devices, which
/// nobody else may have to. All who watch in this process share one. The threads end, without anybody waiting for
/// them, after the last user has gone.
///
///     running ──the last handle goes──► ending (both threads on their way out; a new user starts another pair)
///
/// Thread-safe.
class Watch {
public:
    [[nodiscard]] static std::shared_ptr<Watch> shared();
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// What is there now; null until the tree was read for the first time.
    [[nodiscard]] std::shared_ptr<const View> view() const;
    /// `changed` is called on the watching thread, once now and whenever there is another view, until the result goes.
    /// One call may still be under way then.
    [[nodiscard]] std::shared_ptr<void> listen(std::function<void()> changed);

private:
    Watch();
    const std::shared_ptr<WatchState> state_;
};

} // namespace dmf::usb
