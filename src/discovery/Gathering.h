#pragma once

#include <dmf/ADMServiceInfo.h>

#include <memory>
#include <mutex>
#include <vector>

#include "discovery/FoundServices.h"

namespace dmf::internal {

/// What a synchronous run collects. Thread-safe.
class Gathering final {
public:
    void add(const std::shared_ptr<ADMServiceInfo>& service);
    void remove(ADMServiceInfo& service);
    /// Begins to count the idle time.
    void begin();
    /// Seconds since the last find, or since the begin.
    [[nodiscard]] double idleTime() const;
    [[nodiscard]] std::vector<std::shared_ptr<ADMServiceInfo>> all() const;

private:
    mutable std::mutex lock_;
    FoundServices services_;         // guarded by lock_
    double lastServiceComeDate_ = 0; // guarded by lock_; on the steady clock
};

} // namespace dmf::internal
