#include "ServiceName.h"

#include <algorithm>

#include <dmf/ADMServiceURI.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include "PlainText.h"

namespace dmf::dnssd {

namespace {
constexpr const char* kDefaultType = "_pdl-datastream._tcp";
constexpr const char* kDefaultDomain = "local";

std::string withoutDot(std::string text)
{
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return text;
}
} // namespace

std::optional<ServiceName> ServiceName::fromParameters(const Dictionary& parameters)
{
    auto name = parameters.string(kBonjourServiceNameParam);
    auto type = parameters.string(kBonjourServiceTypeParam);
    auto domain = parameters.string(kBonjourServiceDomainParam);
    if (!name || name->empty())
        return std::nullopt;
    if (!type || !domain)
        return ServiceName{*std::move(name), kDefaultType, kDefaultDomain};
    return ServiceName{*std::move(name), withoutDot(*std::move(type)), withoutDot(*std::move(domain))};
}

std::optional<std::string> ServiceName::uri() const
{
    if (!isPlainText(name))
        return std::nullopt;
    const auto made = ADMServiceURI::bonjourServiceURIWithServiceName(name, type + ".", domain + ".");
    if (!made)
        return std::nullopt;
    ADMServiceURIParser parser(made->stringRepresentation());
    if (!parser.parse())
        return std::nullopt;
    const auto components = parser.components();
    const auto* const params = components[kParamsProp].asDictionary();
    if (!params || fromParameters(*params) != *this)
        return std::nullopt;
    return made->stringRepresentation();
}

std::string ServiceName::key() const
{
    std::string key = name + '\n' + type + '\n' + domain;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return key;
}

} // namespace dmf::dnssd
