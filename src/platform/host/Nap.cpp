#include "platform/host/Nap.h"

#include <algorithm>
#include <chrono>
#include <set>

#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

/// Who naps just now. The lock is taken before that of a nap.
struct Nappers {
    std::mutex lock;
    std::set<Nap*> all;
};

Nappers& nappers()
{
    static auto* const made = new Nappers; // never destroyed: a thread may still nap
    return *made;
}

/// Longer waits overflow in the standard library's arithmetic.
constexpr double kLongest = 1e6;

} // namespace

void Nap::take(double seconds)
{
    {
        std::lock_guard guard(nappers().lock);
        nappers().all.insert(this);
    }
    const auto& host = Host::current();
    const double until = host.steadyNow() + seconds;
    {
        std::unique_lock guard(lock_);
        for (double left = seconds; !ended_ && left > 0; left = until - host.steadyNow())
            woken_.wait_for(guard, std::chrono::duration<double>(std::min(left, kLongest)));
    }
    std::lock_guard guard(nappers().lock);
    nappers().all.erase(this);
}

void Nap::end()
{
    std::lock_guard guard(lock_);
    ended_ = true;
    woken_.notify_all();
}

void Nap::clockHasMoved()
{
    std::lock_guard guard(nappers().lock);
    for (Nap* const each : nappers().all) {
        std::lock_guard woken(each->lock_);
        each->woken_.notify_all();
    }
}

} // namespace dmf::internal
