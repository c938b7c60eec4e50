#include "foundation/threads/HandOver.h"

#include <cerrno>

namespace dmf::internal {

HandOver::HandOver(State state) noexcept : isTaken_(state == State::taken) {}

HandOver::~HandOver() = default;

std::int32_t HandOver::lock()
{
    std::unique_lock guard(lock_);
    released_.wait(guard, [this] { return !isTaken_; });
    isTaken_ = true;
    return 0;
}

std::int32_t HandOver::unlock()
{
    std::lock_guard guard(lock_);
    if (!isTaken_)
        return EPERM;
    isTaken_ = false;
    // With the lock held: whoever waits may destroy this object as soon as it can go on.
    released_.notify_one();
    return 0;
}

std::int32_t HandOver::trylock()
{
    std::lock_guard guard(lock_);
    if (isTaken_)
        return EBUSY;
    isTaken_ = true;
    return 0;
}

} // namespace dmf::internal
