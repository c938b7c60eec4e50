#include <dmf/ADMServiceURI.h>

#include <dmf/platform/Error.h>

#include "service/uris/UriForms.h"

using namespace dmf::internal;

ADMServiceURI::~ADMServiceURI() = default;

const dmf::Url& ADMServiceURI::URLRepresentation() const
{
    throw dmf::UnrecognizedOperation("ADMServiceURI", "URLRepresentation");
}

std::string ADMServiceURI::stringRepresentation() const
{
    throw dmf::UnrecognizedOperation("ADMServiceURI", "stringRepresentation");
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURI::networkServiceURIWithIPAddress(std::string_view address, Scheme scheme)
{
    return ADMServiceURIImp::initWithNetworkIPAddress(address, scheme);
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURI::networkServiceURIWithHostName(std::string_view hostName, Scheme scheme)
{
    return ADMServiceURIImp::initWithNetworkHostName(hostName, scheme);
}

std::shared_ptr<ADMServiceURIImp>
ADMServiceURI::bonjourServiceURIWithServiceName(std::string_view serviceName,
                                                std::optional<std::string_view> serviceType,
                                                std::optional<std::string_view> domain, Scheme scheme)
{
    return ADMServiceURIImp::initWithBonjourServiceURIWithServiceName(serviceName, serviceType, domain, scheme);
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURI::USBServiceURIWithProductName(std::string_view productName,
                                                                              std::string_view vendor,
                                                                              std::string_view serialNumber,
                                                                              Scheme scheme)
{
    return ADMServiceURIImp::initWithUSBProductName(productName, vendor, serialNumber, scheme);
}

ADMServiceURIImp::ADMServiceURIImp(dmf::Url url) : dmf::Url(std::move(url)) {}

std::shared_ptr<ADMServiceURIImp> ADMServiceURIImp::initWithString(std::optional<std::string_view> string)
{
    auto url = string ? dmf::Url::fromString(*string) : std::nullopt;
    return url ? std::shared_ptr<ADMServiceURIImp>(new ADMServiceURIImp(*std::move(url))) : nullptr;
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURIImp::initWithNetworkIPAddress(std::string_view address, Scheme scheme)
{
    return initWithString(scheme ? universalUri(*scheme, addressPairs(address)) : addressUri(address));
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURIImp::initWithNetworkHostName(std::string_view hostName, Scheme scheme)
{
    return initWithString(scheme ? universalUri(*scheme, hostPairs(hostName)) : hostUri(hostName));
}

std::shared_ptr<ADMServiceURIImp>
ADMServiceURIImp::initWithBonjourServiceURIWithServiceName(std::string_view serviceName,
                                                           std::optional<std::string_view> serviceType,
                                                           std::optional<std::string_view> domain, Scheme scheme)
{
    const auto type = serviceType.value_or(kDefaultBonjourType);
    const auto place = domain.value_or(kDefaultBonjourDomain);
    return initWithString(scheme ? universalUri(*scheme, bonjourPairs(serviceName, type, place))
                                 : bonjourUri(serviceName, type, place));
}

std::shared_ptr<ADMServiceURIImp> ADMServiceURIImp::initWithUSBProductName(std::string_view productName,
                                                                           std::string_view vendor,
                                                                           std::string_view serialNumber, Scheme scheme)
{
    return initWithString(scheme ? universalUri(*scheme, usbPairs(vendor, productName, serialNumber))
                                 : usbUri(vendor, productName, serialNumber));
}
