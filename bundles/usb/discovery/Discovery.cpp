#include "Discovery.h"

#include <stdexcept>

#include <dmf/DMLog.h>

namespace dmf::usb {

std::shared_ptr<IDMServiceDiscovery> Discovery::initWithServiceName(std::string serviceName, std::string connectionType,
                                                                    Dictionary parameters)
{
    auto made = std::make_shared<Discovery>(std::move(serviceName), std::move(connectionType), std::move(parameters));
    try {
        made->setDiscovery(std::make_shared<Provider>(made));
    } catch (const std::runtime_error& error) {
        DMFLog("errors", "Discovery: USB: %@", error);
        return nullptr;
    }
    return made;
}

Discovery::Discovery(std::string serviceName, std::string connectionType, Dictionary parameters)
    : ADMServiceDiscoveryBase(std::move(serviceName), std::move(connectionType), std::move(parameters))
{
}

Dictionary Discovery::lastError() const
{
    const auto* const provider = dynamic_cast<const Provider*>(discovery().get());
    return provider ? provider->trouble() : Dictionary();
}

Provider::~Provider()
{
    replaceRun(nullptr);
}

ADMDiscoveryProvider::Status Provider::startDiscovery(std::string_view serviceName, std::optional<std::string_view>)
{
    const auto owner = parent();
    if (!owner)
        return noOwner;
    const auto run = std::make_shared<Run>(owner, std::string(serviceName));
    replaceRun(run);
    return run->begin() ? Status{0} : Status{noThread};
}

ADMDiscoveryProvider::Status Provider::stopDiscovery()
{
    replaceRun(nullptr);
    return 0;
}

void Provider::replaceRun(std::shared_ptr<Run> run)
{
    {
        std::lock_guard guard(lock_);
        std::swap(run_, run);
    }
    if (run)
        run->end();
}

Dictionary Provider::trouble() const
{
    std::lock_guard guard(lock_);
    return run_ ? run_->trouble() : Dictionary();
}

} // namespace dmf::usb
