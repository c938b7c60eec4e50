#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

/// Keeps objects by key together with the time at which each was stored, and hands one back only while it is young.
/// Thread-safe.
class DMF_EXPORT ADMObjectCache final {
public:
    [[nodiscard]] static std::shared_ptr<ADMObjectCache> objectCache();
    ADMObjectCache();
    ~ADMObjectCache();
    ADMObjectCache(const ADMObjectCache&) = delete;
    ADMObjectCache& operator=(const ADMObjectCache&) = delete;

    /// Stores `object`, replacing an earlier one. A null `object` leaves the earlier one in place.
    void cacheObject(dmf::Value object, std::string_view key);

    /// The object under `key`, if it was stored at most `maximumAge` seconds ago; otherwise a null value.
    /// A stale entry stays until it is replaced or removed.
    [[nodiscard]] dmf::Value cachedObjectForKey(std::string_view key, double maximumAge) const;

    void removeObjectForKey(std::string_view key);
    void removeAllObjects();

    /// Kept for its owner and never called.
    [[nodiscard]] std::shared_ptr<void> delegate() const;
    void setDelegate(std::weak_ptr<void> delegate);

    /// These do nothing: the cache needs no run loop. They are here because all that is scheduled is scheduled alike.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);

private:
    struct Entry {
        dmf::Value object;
        dmf::Date storedAt;
    };
    mutable std::recursive_mutex lock_;
    std::map<std::string, Entry, std::less<>> entries_; // guarded by lock_
    std::weak_ptr<void> delegate_;                      // guarded by lock_
};
