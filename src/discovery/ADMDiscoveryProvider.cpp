#include <dmf/ADMDiscoveryProvider.h>

#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/platform/Error.h>

#include <stdexcept>
#include <utility>

namespace {
std::weak_ptr<ADMServiceDiscoveryBase> required(const std::shared_ptr<ADMServiceDiscoveryBase>& parent)
{
    if (!parent)
        throw std::invalid_argument("a discovery provider needs a service discovery");
    return parent;
}
} // namespace

ADMDiscoveryProvider::ADMDiscoveryProvider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent)
    : parent_(required(parent))
{
    if (!parent->retainThread())
        throw std::runtime_error("the discovery thread cannot be started");
}

ADMDiscoveryProvider::~ADMDiscoveryProvider()
{
    ADMServiceDiscoveryBase::releaseThread();
}

ADMDiscoveryProvider::Status ADMDiscoveryProvider::startDiscovery(std::string_view, std::optional<std::string_view>)
{
    throw dmf::UnrecognizedOperation("ADMDiscoveryProvider", "startDiscovery:withScope:");
}

ADMDiscoveryProvider::Status ADMDiscoveryProvider::stopDiscovery()
{
    throw dmf::UnrecognizedOperation("ADMDiscoveryProvider", "stopDiscovery");
}

ADMDiscoveryProvider::Status ADMDiscoveryProvider::initDiscovery(dmf::Value service, std::optional<std::string_view>)
{
    if (service.isNull())
        return 1;
    std::lock_guard guard(serviceLock_);
    std::swap(service_, service); // the earlier one goes after the lock
    return 0;
}

void ADMDiscoveryProvider::resetDiscovery()
{
    dmf::Value dropped;
    std::lock_guard guard(serviceLock_);
    std::swap(service_, dropped);
}

dmf::Value ADMDiscoveryProvider::service() const
{
    std::lock_guard guard(serviceLock_);
    return service_;
}

ADMDiscoveryProvider::Status ADMDiscoveryProvider::parameter(std::optional<std::string_view> name,
                                                             std::span<std::uint8_t> value)
{
    return !name || value.empty() ? kMissingArgument : kUnsupportedParameter;
}

ADMDiscoveryProvider::Status ADMDiscoveryProvider::setParameter(std::optional<std::string_view> name,
                                                                std::span<const std::uint8_t> value)
{
    return !name || value.empty() ? kMissingArgument : kUnsupportedParameter;
}

dmf::Dictionary ADMDiscoveryProvider::parameters() const
{
    const auto owner = parent();
    return owner ? owner->parameters() : dmf::Dictionary();
}
