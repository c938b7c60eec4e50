#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>

class ADMCallback;

namespace dmf::internal {

/// The way of callbacks from any thread to run loops: an inbox with a limit, and one source that announces it. Each
/// turn of a run loop performs the oldest callback; a run loop that ends, or leaves, leaves the rest to the others.
/// Thread-safe. Exported for the tests.
class DMF_EXPORT CallbackPort : public std::enable_shared_from_this<CallbackPort> {
public:
    using Seconds = std::chrono::duration<double>;
    using Callbacks = std::deque<std::shared_ptr<ADMCallback>>;

    /// The inbox takes `capacity` callbacks; a sender waits for room for as long as `patience`.
    [[nodiscard]] static std::shared_ptr<CallbackPort> create(std::size_t capacity, Seconds patience);
    ~CallbackPort();
    CallbackPort(const CallbackPort&) = delete;
    CallbackPort& operator=(const CallbackPort&) = delete;

    /// False when the callback is lost: no room came, or the port is (or meanwhile became) invalid.
    bool send(std::shared_ptr<ADMCallback> callback);

    void scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode);

    [[nodiscard]] bool isValid() const;
    /// Ends the port and every wait for room. Gives what was in the inbox, for the caller to let go outside its locks.
    Callbacks invalidate();

private:
    struct Place {
        std::shared_ptr<RunLoop> runLoop;
        std::string mode;
        friend bool operator==(const Place&, const Place&) = default;
    };

    CallbackPort(std::size_t capacity, Seconds patience);
    void performOldest();
    void announce(); // with lock_ held

    const std::size_t capacity_;
    const Seconds patience_;
    mutable std::mutex lock_;
    std::condition_variable changed_;       // room, or the end
    Callbacks inbox_;                       // guarded by lock_
    std::vector<Place> places_;             // guarded by lock_
    std::shared_ptr<RunLoopSource> source_; // guarded by lock_; none once invalid
};

} // namespace dmf::internal
