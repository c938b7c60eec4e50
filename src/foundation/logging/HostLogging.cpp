#include "foundation/logging/HostLogging.h"

namespace dmf::internal {

HostLogging& HostLogging::current()
{
    Host& host = Host::current();
    Host::Belongings* known = host.logging.load(std::memory_order_acquire);
    if (!known) {
        auto* const made = new HostLogging(host); // the host's
        if (host.logging.compare_exchange_strong(known, made, std::memory_order_acq_rel))
            known = made;
        else
            delete made; // another thread was first
    }
    return static_cast<HostLogging&>(*known);
}

ADMLoggerImp& HostLogging::defaultLogger()
{
    if (ADMLoggerImp* const known = default_.load(std::memory_order_acquire))
        return *known;
    std::lock_guard guard(lock_);
    if (!made_)
        made_ = ADMLoggerImp::init();
    default_.store(made_.get(), std::memory_order_release);
    return *made_;
}

} // namespace dmf::internal
