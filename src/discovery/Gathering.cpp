#include "discovery/Gathering.h"

#include "platform/host/Host.h"

namespace dmf::internal {

void Gathering::add(const std::shared_ptr<ADMServiceInfo>& service)
{
    std::lock_guard guard(lock_);
    services_.add(service);
    lastServiceComeDate_ = Host::current().steadyNow();
}

void Gathering::remove(ADMServiceInfo& service)
{
    std::lock_guard guard(lock_);
    services_.remove(service);
}

void Gathering::begin()
{
    std::lock_guard guard(lock_);
    lastServiceComeDate_ = Host::current().steadyNow();
}

double Gathering::idleTime() const
{
    std::lock_guard guard(lock_);
    return Host::current().steadyNow() - lastServiceComeDate_;
}

std::vector<std::shared_ptr<ADMServiceInfo>> Gathering::all() const
{
    std::lock_guard guard(lock_);
    return services_.all();
}

} // namespace dmf::internal
