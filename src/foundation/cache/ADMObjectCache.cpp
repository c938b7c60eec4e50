#include <dmf/ADMObjectCache.h>

#include <cmath>
#include <utility>

// What leaves the cache is let go after the lock: the object's own destructor may come back to the cache.

std::shared_ptr<ADMObjectCache> ADMObjectCache::objectCache()
{
    return std::make_shared<ADMObjectCache>();
}

ADMObjectCache::ADMObjectCache() = default;
ADMObjectCache::~ADMObjectCache() = default;

void ADMObjectCache::cacheObject(dmf::Value object, std::string_view key)
{
    if (object.isNull())
        return;
    // Taken before the lock is waited for: the object is as old as the call.
    const dmf::Date now = dmf::Date::now();
    std::lock_guard guard(lock_);
    auto entry = entries_.find(key);
    if (entry == entries_.end())
        entry = entries_.try_emplace(std::string(key)).first;
    std::swap(entry->second.object, object);
    entry->second.storedAt = now;
}

dmf::Value ADMObjectCache::cachedObjectForKey(std::string_view key, double maximumAge) const
{
    std::lock_guard guard(lock_);
    const auto entry = entries_.find(key);
    if (entry == entries_.end())
        return {};
    // The absolute distance: a clock set back must not make an entry immortal.
    const double age = std::abs(dmf::Date::now().timeIntervalSince(entry->second.storedAt));
    return age > maximumAge ? dmf::Value{} : entry->second.object;
}

void ADMObjectCache::removeObjectForKey(std::string_view key)
{
    decltype(entries_)::node_type removed;
    std::lock_guard guard(lock_);
    if (const auto entry = entries_.find(key); entry != entries_.end())
        removed = entries_.extract(entry);
}

void ADMObjectCache::removeAllObjects()
{
    decltype(entries_) removed;
    std::lock_guard guard(lock_);
    removed.swap(entries_);
}

std::shared_ptr<void> ADMObjectCache::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMObjectCache::setDelegate(std::weak_ptr<void> delegate)
{
    std::lock_guard guard(lock_);
    delegate_.swap(delegate);
}

void ADMObjectCache::scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::string_view) {}

void ADMObjectCache::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::string_view) {}
