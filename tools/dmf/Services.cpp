#include "Services.h"

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>

#include "MockPlugIns.h"
#include "Output.h"
#include "ReasonLog.h"

namespace dmf::tool {

std::string refusalOfURI(std::string_view uri, const std::string& logged)
{
    if (!logged.empty())
        return logged;
    if (uri.empty())
        return "an empty text is no URI";
    return "this is no URI: it has no scheme, a bad escape, or a character that may not stand in a URI";
}

std::shared_ptr<ADMServiceInfo> serviceForURI(std::string_view uri, std::string_view deviceClass)
{
    useShippedMockPlugIn(uri);
    const ReasonLog log;
    if (auto service = ADMServiceInfoImp::initWithURI(uri, deviceClass))
        return service;
    throw Failure(ExitCode::failed, refusalOfURI(uri, log.reason()));
}

void requireTransport(const ADMServiceInfo& service)
{
    if (service.ioProvider())
        return;
    const auto type = service.connectionType();
    const Dictionary matching{{std::string(kDMServiceConnectionType), type}};
    if (!type || !ADMPlugInManager::sharedManager()->implementorForProtocol(IDMDevice::protocol(), matching))
        throw Failure(ExitCode::nothingFound, "no plug-in of this machine serves devices of connection type '" +
                                                  type.value_or("") + "' (see dmf plugins)");
}

} // namespace dmf::tool
