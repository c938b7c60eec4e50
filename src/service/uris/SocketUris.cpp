#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>

#include <utility>

#include "platform/text/StringScanner.h"
#include "service/uris/UriReading.h"

namespace dmf::internal {
namespace {

void setAddress(UriEntries& params, std::string_view address)
{
    params.set(kIPAddressParam, address);
    params.set(kAllIPAddressesParam, Array{Value(address)});
}

bool holdsTwoColons(std::string_view text)
{
    const auto colon = text.find(':');
    return colon != std::string_view::npos && text.find(':', colon + 1) != std::string_view::npos;
}

/// An authority of fewer than two colons: a host name or an IPv4 address, and maybe a port, which is not checked.
void readHostAndPort(std::string_view authority, UriEntries& params, UriEntries& components)
{
    const auto colon = authority.find(':');
    const auto host = authority.substr(0, colon);
    if (CharacterSet::letters().containsAnyOf(host)) {
        params.set(kHostNameParam, host);
        components.set(kDeviceNameProp, host);
    } else {
        setAddress(params, host);
    }
    if (colon != std::string_view::npos)
        params.set(kIPPortParam, authority.substr(colon + 1));
}

/// An IPv6 authority: in brackets, and then maybe with a port, or bare.
bool readIPv6Authority(std::string_view authority, UriEntries& params)
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
    params.setIfPresent(kIPPortParam, port);
    return true;
}

} // namespace

bool readSocketUri(std::string_view uri, UriEntries& components)
{
    // A printer that was set up by its Bonjour name keeps the scheme of the transport that it prints over.
    // (The underscore is looked for first because addresses are full of dots.)
    if (uri.find('_') != std::string_view::npos && uri.find("._tcp.local.") != std::string_view::npos)
        return readBonjourUri(uri, components);

    std::string buffer;
    const auto text = unescaped(uri, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("://");
    scanner.scan("://");
    const auto authority = scanner.scanUpToAnyOf("/?");
    if (!authority)
        return false;

    UriEntries params;
    if (!holdsTwoColons(*authority))
        readHostAndPort(*authority, params, components);
    else if (!readIPv6Authority(*authority, params))
        return false;
    components.set(kParamsProp, std::move(params).dictionary());
    scanner.scanAnyOf("/?");
    const auto [vendor, model] = vendorAndModelIn(scanner.remaining());
    components.setIfPresent(kVendorNameProp, vendor);
    components.setIfPresent(kModelNameProp, model);
    return true;
}

} // namespace dmf::internal
