#include "platform/runloop/RunLoopItem.h"

namespace dmf::internal {

bool RunLoopItem::invalidate()
{
    std::vector<std::weak_ptr<RunLoopPlace>> left;
    {
        std::lock_guard guard(lock);
        if (!isValid.exchange(false))
            return false;
        left = places;
    }
    for (const auto& weak : left) {
        if (const auto place = weak.lock())
            place->remove(*this);
    }
    return true;
}

void RunLoopItem::wakePlaces()
{
    for (const auto& weak : places) {
        if (const auto place = weak.lock())
            place->wake();
    }
}

void RunLoopItem::forget(const RunLoopPlace& left)
{
    std::erase_if(places, [&](const auto& weak) {
        const auto place = weak.lock();
        return !place || place.get() == &left;
    });
}

} // namespace dmf::internal
