#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace dmf::internal {

struct RunLoopItem;

/// What sources and timers know of the modes that they stand in. Thread-safe.
class RunLoopPlace {
public:
    virtual ~RunLoopPlace() = default;
    /// Makes whoever turns the place look at its items before it next waits.
    virtual void wake() = 0;
    /// Takes the item out; nothing where it does not stand here.
    virtual void remove(RunLoopItem& item) = 0;
};

/// What sources and timers have in common: they are valid or not, and stand in modes. An item's lock is taken before
/// a mode's, and neither is held while a callback runs.
struct RunLoopItem {
    /// Makes the item invalid and takes it out of its places; false when it was invalid before.
    bool invalidate();
    void wakePlaces(); // with lock held
    /// Strikes out `left` and the places that are gone. With lock held.
    void forget(const RunLoopPlace& left);

    std::mutex lock;
    std::atomic<bool> isValid{true};                 // changed under lock
    std::vector<std::weak_ptr<RunLoopPlace>> places; // guarded by lock
};

} // namespace dmf::internal
