#include <dmf/ADMFunctionalServiceImp.h>

#include <dmf/ADMServiceInfo.h>

ADMFunctionalServiceImp::ADMFunctionalServiceImp(Initializer&& initializer)
    : serviceInfo_(std::move(initializer.serviceInfo_))
{
}

ADMFunctionalServiceImp::~ADMFunctionalServiceImp() = default;

bool ADMFunctionalServiceImp::isAvailable() const
{
    constexpr std::uint32_t found = 1;
    return serviceInfo_->serviceState() == found;
}

// The setters swap, so that an old value goes with the argument, outside the lock, whatever it does as it goes.

dmf::Dictionary ADMFunctionalServiceImp::parameters() const
{
    std::lock_guard guard(lock_);
    return parameters_;
}

void ADMFunctionalServiceImp::setParameters(dmf::Dictionary parameters)
{
    std::lock_guard guard(lock_);
    std::swap(parameters_, parameters);
}

dmf::Dictionary ADMFunctionalServiceImp::lastError() const
{
    std::lock_guard guard(lock_);
    return lastError_;
}

void ADMFunctionalServiceImp::setLastError(dmf::Dictionary error)
{
    std::lock_guard guard(lock_);
    std::swap(lastError_, error);
}
