#include <dmf/ADMBaseFactory.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>
#include <dmf/platform/Url.h>

#include "plugins/GuardedMake.h"

ADMBaseFactory::~ADMBaseFactory() = default;

std::shared_ptr<ADMInterface>
ADMBaseFactory::implementerWithInterface(const dmf::Protocol& interface,
                                         const std::shared_ptr<ADMServiceInfo>& serviceInfo) const
{
    const auto uri = serviceInfo ? serviceInfo->uri() : std::nullopt;
    if (!uri || serviceInfo->hasStandardURI())
        return nullptr;
    const auto url = dmf::Url::fromString(*uri);
    if (!url)
        return nullptr;
    const dmf::Dictionary matching{{std::string(kDMMockScheme), dmf::lowercased(url->scheme())}};
    const auto implementor = ADMPlugInManager::sharedManager()->implementorForProtocol(interface, matching);
    return dmf::internal::guardedMake<ADMInterfaceInitialization>(implementor, serviceInfo);
}
