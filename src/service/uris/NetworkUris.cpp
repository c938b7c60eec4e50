#include <dmf/ADMServiceURIParser.h>

#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include <array>
#include <utility>

#include "foundation/keys/InternalKeys.h"
#include "platform/text/StringScanner.h"
#include "platform/text/UrlParts.h"
#include "service/uris/UriForms.h"
#include "service/uris/UriPieces.h"

// The steps of the parser for devices on a network.

using dmf::Dictionary;
using namespace dmf::internal;

namespace {

void setAddress(Dictionary& params, std::string_view address)
{
    dmf::Array all;
    all.append(dmf::Value(address));
    params.set(kAllIPAddressesParam, std::move(all));
    params.set(kIPAddressParam, address);
}

bool holdsTwoColons(std::string_view text)
{
    const auto colon = text.find(':');
    return colon != std::string_view::npos && text.find(':', colon + 1) != std::string_view::npos;
}

/// An authority of fewer than two colons: a host name or an IPv4 address, and maybe a port, which is not checked.
void readHostAndPort(std::string_view authority, Dictionary& params, Dictionary& components)
{
    const auto colon = authority.find(':');
    const auto host = authority.substr(0, colon);
    if (dmf::CharacterSet::letters().containsAnyOf(host)) {
        params.set(kHostNameParam, host);
        components.set(kDeviceNameProp, host);
    } else {
        setAddress(params, host);
    }
    if (colon != std::string_view::npos)
        params.set(kIPPortParam, authority.substr(colon + 1));
}

/// An IPv6 authority: in brackets, and then maybe with a port, or bare.
bool readIPv6Authority(std::string_view authority, Dictionary& params)
{
    std::string_view address = authority;
    std::optional<std::string_view> port;
    const auto opening = authority.find('[');
    const auto closing = authority.find(']');
    if (closing != std::string_view::npos) {
        if (closing < 2 || opening != 0)
            return false;
        address = authority.substr(1, closing - 1);
        const auto tail = authority.substr(closing);
        const auto colon = tail.find(':');
        if (colon != std::string_view::npos && tail.find(':', colon + 1) == std::string_view::npos)
            port = tail.substr(colon + 1);
    } else if (opening != std::string_view::npos) {
        return false;
    }
    // The URI's own escapes are gone by now: a zone separator that is still escaped was escaped twice.
    const auto zone = address.find("%25");
    if (zone == std::string_view::npos)
        setAddress(params, address);
    else
        setAddress(params, joined({address.substr(0, zone + 1), address.substr(zone + 3)}));
    setIfPresent(params, kIPPortParam, port);
    return true;
}

/// "001122334455" as "00.11.22.33.44.55"; nothing for a text of another length.
std::optional<std::string> dottedMACAddress(std::optional<std::string_view> digits)
{
    if (!digits || digits->size() != 12)
        return std::nullopt;
    std::string result(digits->substr(0, 2));
    for (std::size_t at = 2; at < 12; at += 2)
        result.append(".").append(digits->substr(at, 2));
    return result;
}

} // namespace

bool ADMServiceURIParser::parseSocket()
{
    // A printer that was set up by its Bonjour name keeps the scheme of the transport that it prints over.
    // (The underscore is looked for first because addresses are full of dots.)
    if (uri_.find('_') != std::string::npos && uri_.find("._tcp.local.") != std::string::npos)
        return parseMDNS();

    std::string buffer;
    const auto text = unescaped(uri_, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("://");
    scanner.scan("://");
    const auto authority = scanner.scanUpToAnyOf("/?");
    if (!authority)
        return false;

    Dictionary params;
    params.reserve(3);
    if (!holdsTwoColons(*authority))
        readHostAndPort(*authority, params, components_);
    else if (!readIPv6Authority(*authority, params))
        return false;
    // Stored in the order of the keys, here and below: a dictionary then only appends.
    scanner.scanAnyOf("/?");
    const auto [vendor, model] = vendorAndModelIn(scanner.remaining());
    setIfPresent(components_, kModelNameProp, model);
    components_.set(kParamsProp, std::move(params));
    setIfPresent(components_, kVendorNameProp, vendor);
    return true;
}

bool ADMServiceURIParser::parseMDNS()
{
    StringScanner scanner(uri_);
    if (!scanner.scanUpTo("//"))
        return false;
    scanner.scan("//");
    const auto escapedHost = scanner.scanUpTo("/");
    if (!escapedHost)
        return false;
    std::string buffer;
    const auto host = unescaped(*escapedHost, buffer);
    if (!host)
        return false;

    // From the end: what follows the last dot (nothing, as a rule), the domain, the protocol, the type. The name is
    // all that is left, dots included.
    std::array<std::size_t, 4> dots{};
    std::size_t end = host->size();
    for (std::size_t& dot : dots) {
        dot = end == 0 ? std::string_view::npos : host->rfind('.', end - 1);
        if (dot == std::string_view::npos)
            return false;
        end = dot;
    }
    const auto name = host->substr(0, dots[3]);
    const auto type = host->substr(dots[3] + 1, dots[2] - dots[3] - 1);
    const auto domain = host->substr(dots[1] + 1, dots[0] - dots[1]);

    Dictionary params;
    params.reserve(4);
    params.set(kBonjourServiceDomainParam, domain);
    params.set(kBonjourServiceNameParam, name);
    params.set(kBonjourServiceTypeParam, host->substr(dots[3] + 1, dots[1] - dots[3]));
    params.set(kRendezvousAddressParam, com_ql_dmf_stringByEncodingToURLNotation(joined({name, ".", domain})));
    components_.set(kDeviceNameProp, name);
    components_.set(kParamsProp, std::move(params));
    if (type == "_pdl-datastream" || type == "_printer")
        components_.set(kServiceNameProp, "PRINT");
    return true;
}

bool ADMServiceURIParser::parseQLIP()
{
    const auto url = dmf::Url::fromString(uri_);
    const auto host = url ? url->host() : std::nullopt;
    const auto query = url ? url->query() : std::nullopt;
    if (!host || !query || query->empty())
        return parseLegacyQLVastel();

    std::optional<std::string_view> model, digits, interfaceNumber;
    forEachPiece(*query, '&', [&](std::string_view element) {
        const auto pair = firstTwoPieces(element);
        if (!pair)
            return;
        if (pair->first == kDMQLIPModelName)
            model = pair->second;
        else if (pair->first == kDMQLIPMacAddress)
            digits = pair->second;
        else if (pair->first == kDMQLIPInterfaceID)
            interfaceNumber = pair->second;
    });
    std::string buffer;
    const auto modelName = model ? percentUnescaped(*model, buffer) : std::nullopt;
    if (!modelName || modelName->empty())
        return parseLegacyQLVastel();

    components_.set(kModelNameProp, *modelName);
    components_.set(kParamsProp, untilFirstMissing({{kIPAddressParam, *host},
                                                    {kMACAddressParam, dottedMACAddress(digits)},
                                                    {kInterfaceNumberParam, interfaceNumber}}));
    return true;
}

bool ADMServiceURIParser::parseLegacyQLVastel()
{
    std::string buffer;
    const auto text = unescaped(uri_, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto ipAddress = scanner.scanUpTo(":");
    if (!ipAddress)
        return false;
    scanner.scan(":");
    const auto model = scanner.scanUpTo("/");
    if (!model)
        return false;
    components_.set(kModelNameProp, *model);
    scanner.scan("/");

    std::optional<std::string_view> macAddress;
    const auto interfaceNumber = scanner.scanUpTo(":");
    if (interfaceNumber) {
        scanner.scan(":");
        macAddress = scanner.remaining();
    }
    components_.set(kParamsProp, untilFirstMissing({{kIPAddressParam, ipAddress},
                                                    {kMACAddressParam, macAddress},
                                                    {kInterfaceNumberParam, interfaceNumber}}));
    return true;
}
