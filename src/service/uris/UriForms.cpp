#include "service/uris/UriForms.h"

#include <dmf/DMCore.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>

namespace dmf::internal {
namespace {

// Since when the system understands both; older ones get URIs that they can use.
constexpr std::int32_t kFirstVersionWithBidi = 0x1031;
constexpr std::int32_t kFirstVersionWithDnssd = 0x1060;

std::string_view bidiSuffix()
{
    return DMGetLocalSysVersion() >= kFirstVersionWithBidi ? "/?bidi" : "";
}

std::string_view bonjourSchemePrefix()
{
    return DMGetLocalSysVersion() >= kFirstVersionWithDnssd ? "dnssd://" : "mdns://";
}

bool isIPv6(std::string_view address)
{
    return address.find(':') != std::string_view::npos;
}

std::string withEscapedZone(std::string_view address)
{
    const auto percent = isIPv6(address) ? address.find('%') : std::string_view::npos;
    if (percent == std::string_view::npos)
        return std::string(address);
    return joined({address.substr(0, percent), "%25", address.substr(percent + 1)});
}

} // namespace

std::string joined(std::initializer_list<std::string_view> pieces)
{
    std::size_t length = 0;
    for (const auto piece : pieces)
        length += piece.size();
    std::string text;
    text.reserve(length);
    for (const auto piece : pieces)
        text += piece;
    return text;
}

std::string joinedPairs(std::initializer_list<Pair> pairs)
{
    std::size_t length = 0;
    for (const auto& [key, value] : pairs)
        length += key.size() + value.size() + 2;
    std::string text;
    text.reserve(length);
    for (const auto& [key, value] : pairs)
        text.append("&").append(key).append("=").append(value);
    return text;
}

std::string universalUri(std::string_view scheme, std::string_view pairs)
{
    return joined({scheme, "://", kDMUniversalURIToken, "/v=", kDMUniversalURIVersion, pairs});
}

std::string usbUri(std::string_view vendor, std::string_view model, std::string_view serialNumber)
{
    return joined({"usb://", vendor, "/", com_ql_dmf_stringByEncodingToURLNotation(model),
                   "?serial=", com_ql_dmf_stringByEncodingToURLNotation(serialNumber)});
}

std::string usbPairs(std::string_view vendor, std::string_view model, std::string_view serialNumber)
{
    return joinedPairs({{kConnectionTypeProp, kUSBConnectionType},
                        {kVendorNameProp, vendor},
                        {kModelNameProp, com_ql_dmf_stringByEncodingToURLNotation(model)},
                        {kSerialNumberParam, com_ql_dmf_stringByEncodingToURLNotation(serialNumber)}});
}

std::string addressUri(std::string_view address)
{
    if (!isIPv6(address))
        return hostUri(address);
    return joined({"socket://[", withEscapedZone(address), "]", bidiSuffix()});
}

std::string addressPairs(std::string_view address)
{
    return joinedPairs({{kConnectionTypeProp, kSocketConnectionType}, {kIPAddressParam, withEscapedZone(address)}});
}

std::string hostUri(std::string_view hostName)
{
    return joined({"socket://", hostName, bidiSuffix()});
}

std::string hostPairs(std::string_view hostName)
{
    return joinedPairs({{kConnectionTypeProp, kSocketConnectionType}, {kHostNameParam, hostName}});
}

std::string bonjourUri(std::string_view name, std::string_view type, std::string_view domain)
{
    // Type and domain bring their own dots: a dot is never added between them.
    return joined(
        {bonjourSchemePrefix(), com_ql_dmf_stringByEncodingToURLNotation(name), ".", type, domain, bidiSuffix()});
}

std::string bonjourPairs(std::string_view name, std::string_view type, std::string_view domain)
{
    return joinedPairs({{kConnectionTypeProp, kRendezvousConnectionType},
                        {kBonjourServiceNameParam, com_ql_dmf_stringByEncodingToURLNotation(name)},
                        {kBonjourServiceTypeParam, type},
                        {kBonjourServiceDomainParam, domain}});
}

} // namespace dmf::internal
