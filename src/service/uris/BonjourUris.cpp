#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>

#include <array>
#include <utility>

#include "platform/text/StringScanner.h"
#include "service/uris/UriReading.h"

namespace dmf::internal {

bool readBonjourUri(std::string_view uri, UriEntries& components)
{
    StringScanner scanner(uri);
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

    components.set(kDeviceNameProp, name);
    if (type == "_pdl-datastream" || type == "_printer")
        components.set(kServiceNameProp, "PRINT");
    UriEntries params;
    params.set(kBonjourServiceNameParam, name);
    params.set(kBonjourServiceTypeParam, host->substr(dots[3] + 1, dots[1] - dots[3]));
    params.set(kBonjourServiceDomainParam, domain);
    params.set(kRendezvousAddressParam, com_ql_dmf_stringByEncodingToURLNotation(joined({name, ".", domain})));
    components.set(kParamsProp, std::move(params).dictionary());
    return true;
}

} // namespace dmf::internal
