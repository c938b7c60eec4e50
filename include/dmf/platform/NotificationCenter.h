#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// What an observer receives.
struct Notification {
    std::string name;
    const void* sender = nullptr; ///< the object that posted it, for comparison only; null when nobody is named
    Dictionary userInfo;
};

/// Hands each posted notification to its observers, synchronously on the posting thread. Observers may be added and
/// removed while one is being posted. Thread-safe.
class DMF_EXPORT NotificationCenter {
public:
    using Observer = std::function<void(const Notification&)>;
    /// An observation; it ends when this object goes. A call that is under way on another thread is not waited for, so
    /// an observer keeps what it uses alive by itself.
    using Observation = std::shared_ptr<void>;

    /// The process's own centre.
    [[nodiscard]] static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Calls `observer` for every notification of that name, from `sender` only unless it is null.
    [[nodiscard]] Observation addObserver(std::string_view name, Observer observer, const void* sender = nullptr);
    /// Calls the observers in the order in which they were added; those added meanwhile are left out. An observer that
    /// throws does not keep the others from hearing; what the first one threw reaches the caller after the last call.
    void post(std::string_view name, const void* sender = nullptr, Dictionary userInfo = {});

private:
    struct State;
    const std::shared_ptr<State> state_;
};

} // namespace dmf
