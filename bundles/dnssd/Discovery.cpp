#include "Discovery.h"

#include <algorithm>
#include <stdexcept>

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>

namespace dmf::dnssd {

const std::vector<std::string>& typesOfChannel(std::string_view channelName)
{
    struct Row {
        std::string_view channelName;
        std::vector<std::string> types;
    };
    static const auto* const rows = new std::vector<Row>{
        {kDMPrintChannelName, {"_pdl-datastream._tcp", "_ipp._tcp", "_printer._tcp"}},
        {kDMScanChannelName, {"_uscan._tcp"}},
        {kDMEWSChannelName, {"_http._tcp"}},
    };
    static const auto* const none = new std::vector<std::string>;
    const auto row =
        std::find_if(rows->begin(), rows->end(), [&](const Row& each) { return each.channelName == channelName; });
    return row != rows->end() ? row->types : *none;
}

std::shared_ptr<IDMServiceDiscovery> Discovery::initWithServiceName(std::string serviceName, std::string connectionType,
                                                                    Dictionary parameters)
{
    auto made = std::make_shared<Discovery>(std::move(serviceName), std::move(connectionType), std::move(parameters));
    try {
        made->setDiscovery(std::make_shared<Provider>(made));
    } catch (const std::runtime_error& error) {
        DMFLog("errors", "Discovery: DNS-SD: %@", error);
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
    replaceBrowse(nullptr);
}

ADMDiscoveryProvider::Status Provider::startDiscovery(std::string_view serviceName, std::optional<std::string_view>)
{
    const auto& types = typesOfChannel(serviceName);
    const auto owner = parent();
    if (types.empty() || !owner)
        return unknownChannel;
    const auto browse =
        std::make_shared<Browse>(owner, types, std::string(ADMServiceInfoImp::deviceClassForServiceName(serviceName)));
    replaceBrowse(browse);
    if (!browse->begin())
        return noThread;
    return 0;
}

ADMDiscoveryProvider::Status Provider::stopDiscovery()
{
    replaceBrowse(nullptr);
    return 0;
}

void Provider::replaceBrowse(std::shared_ptr<Browse> browse)
{
    {
        std::lock_guard guard(lock_);
        std::swap(browse_, browse);
    }
    if (browse)
        browse->end();
}

Dictionary Provider::trouble() const
{
    std::lock_guard guard(lock_);
    return browse_ ? browse_->trouble() : Dictionary();
}

} // namespace dmf::dnssd
