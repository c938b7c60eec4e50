#include <dmf/platform/NotificationCenter.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

namespace dmf {
namespace {

struct Entry {
    const std::string name;
    const void* const sender;
    const NotificationCenter::Observer observer;
    std::atomic<bool> isActive{true};

    Entry(std::string_view observed, const void* from, NotificationCenter::Observer function)
        : name(observed), sender(from), observer(std::move(function))
    {
    }
    [[nodiscard]] bool wants(const Notification& notification) const
    {
        return name == notification.name && (!sender || sender == notification.sender);
    }
};

} // namespace

struct NotificationCenter::State {
    std::mutex lock;
    std::vector<std::shared_ptr<Entry>> entries; // guarded by lock; in the order of adding

    std::vector<std::shared_ptr<Entry>> observersOf(const Notification& notification)
    {
        std::vector<std::shared_ptr<Entry>> found;
        std::lock_guard guard(lock);
        std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                     [&](const auto& entry) { return entry->wants(notification); });
        return found;
    }
    void remove(const std::shared_ptr<Entry>& entry)
    {
        std::lock_guard guard(lock);
        std::erase(entries, entry);
    }
};

NotificationCenter& NotificationCenter::defaultCenter()
{
    static auto* const center = new NotificationCenter; // never destroyed: library threads may post to the end
    return *center;
}

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Observation NotificationCenter::addObserver(std::string_view name, Observer observer,
                                                                const void* sender)
{
    auto entry = std::make_shared<Entry>(name, sender, std::move(observer));
    {
        std::lock_guard guard(state_->lock);
        state_->entries.push_back(entry);
    }
    Entry* const observed = entry.get();
    const auto end = [entry = std::move(entry), weak = std::weak_ptr(state_)](void*) {
        entry->isActive = false; // a posting under way must not call it any more
        if (const auto state = weak.lock())
            state->remove(entry);
    };
    return {static_cast<void*>(observed), end};
}

void NotificationCenter::post(std::string_view name, const void* sender, Dictionary userInfo)
{
    const Notification notification{std::string(name), sender, std::move(userInfo)};
    std::exception_ptr thrown;
    for (const auto& entry : state_->observersOf(notification)) {
        try {
            if (entry->isActive && entry->observer)
                entry->observer(notification);
        } catch (...) {
            if (!thrown)
                thrown = std::current_exception();
        }
    }
    if (thrown)
        std::rethrow_exception(thrown);
}

} // namespace dmf
