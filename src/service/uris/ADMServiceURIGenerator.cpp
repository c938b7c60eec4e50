#include <dmf/ADMServiceURIGenerator.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Error.h>

#include <algorithm>
#include <array>

#include "platform/text/UrlParts.h"
#include "service/uris/UriForms.h"
#include "service/uris/UriReading.h"

using namespace dmf::internal;

namespace {

/// Says what is missing; `params` is shown where the message has a place for it.
std::nullopt_t refusal(std::string_view message, const dmf::Dictionary& params)
{
    DMFLog("debug", message, params);
    return std::nullopt;
}

/// A parameter as it is written into a URI. Devices tell some, such as interface and serial numbers, as numbers.
std::optional<std::string> textOf(const dmf::Dictionary& params, std::string_view key)
{
    const auto& value = params[key];
    return value.asNumber() ? std::optional(value.description()) : value.string();
}

/// Whether the URI is read as one of that type that says every value under its key again. A value may hold what ends it
/// where it stands: "Bob & Alice" would come back as "Bob ", and what follows as a pair of its own.
bool saysAgain(std::string_view uri, std::string_view type, std::initializer_list<Pair> values)
{
    const auto contents = readUri(uri);
    const auto& components = contents.components;
    if (contents.verdict != UriVerdict::read || components.string(kConnectionTypeProp) != type)
        return false;
    const auto* const params = components[kParamsProp].asDictionary();
    return std::ranges::all_of(values, [&](const Pair& pair) {
        return components.string(pair.first) == pair.second || (params && params->string(pair.first) == pair.second);
    });
}

/// The standard URI, or the pairs of a universal one; nothing, with a word in the log, for what is not read back as the
/// values that it was made from.
std::optional<std::string> readable(std::string text, bool universal, const dmf::Dictionary& params,
                                    std::string_view type, std::initializer_list<Pair> values)
{
    if (saysAgain(universal ? universalUri("x", text) : text, type, values))
        return text;
    DMFLog("debug",
           "ServiceInfo: cannot generate an URI of connection type '%@' that reads back as it was made (connection "
           "parameters %@).",
           type, params);
    return std::nullopt;
}

/// The same for a host, which is as good when it is read back as an address: both name the same peer.
std::optional<std::string> readableHost(std::string text, bool universal, const dmf::Dictionary& params,
                                        std::string_view host)
{
    const bool isAddress = !universal && saysAgain(text, kSocketConnectionType, {{kIPAddressParam, host}});
    return isAddress ? text : readable(text, universal, params, kSocketConnectionType, {{kHostNameParam, host}});
}

} // namespace

ADMServiceURIGenerator::Operation
ADMServiceURIGenerator::generatorForConnectionType(std::optional<std::string_view> connectionType)
{
    using Self = ADMServiceURIGenerator;
    struct Row {
        const std::string_view* connectionType;
        Operation operation;
    };
    static constexpr std::array kRows{
        Row{&kUSBConnectionType, &Self::generateUSBURIforServiceInfo},
        Row{&kRendezvousConnectionType, &Self::generateMDNSURIforServiceInfo},
        Row{&kQLIPConnectionType, &Self::generateQLIPURIforServiceInfo},
        Row{&kSocketConnectionType, &Self::generateSocketURIforServiceInfo},
        Row{&kBluetoothConnectionType, &Self::generateBluetoothURIforServiceInfo},
        Row{&kIPPConnectionType, &Self::generateIPPURIforServiceInfo},
        Row{&kLPDConnectionType, &Self::generateLPDURIforServiceInfo},
    };
    const auto row = std::find_if(kRows.begin(), kRows.end(),
                                  [&](const Row& candidate) { return connectionType == *candidate.connectionType; });
    return row != kRows.end() ? row->operation : nullptr;
}

std::optional<std::string>
ADMServiceURIGenerator::generateURIForServiceInfo(const std::shared_ptr<ADMServiceInfo>& service)
{
    const Operation generate = service ? generatorForConnectionType(service->connectionType()) : nullptr;
    return generate ? (this->*generate)(*service, false) : std::nullopt;
}

std::optional<std::string>
ADMServiceURIGenerator::generateUniversalURIForServiceInfo(const std::shared_ptr<ADMServiceInfo>& service,
                                                           std::string_view scheme)
{
    const Operation generate = service ? generatorForConnectionType(service->connectionType()) : nullptr;
    const auto pairs = generate ? (this->*generate)(*service, true) : std::nullopt;
    if (!pairs)
        return std::nullopt;
    auto uri = universalUri(scheme, *pairs);
    // The pairs are known to be readable. The scheme must be one, and none that is read in another way.
    if (schemeOfUrl(uri) == scheme && !isTransportScheme(scheme) && uri.size() <= ADMServiceURIParser::kLongestURI)
        return uri;
    DMFLog("debug", "ServiceInfo: cannot generate an universal URI with the scheme '%@'.", scheme);
    return std::nullopt;
}

std::optional<std::string> ADMServiceURIGenerator::generateUSBURIforServiceInfo(ADMServiceInfo& service, bool universal)
{
    const auto vendor = service.vendorName();
    const auto model = service.modelName();
    const auto params = service.connectionParams();
    if (!vendor || !model)
        return refusal("ServiceInfo: cannot generate an USB URI with unknown vendor or model.", params);
    const auto serial = textOf(params, kSerialNumberParam);
    if (!serial)
        return refusal("ServiceInfo: cannot generate an USB URI with unknown serial number (connection parameters %@).",
                       params);
    return readable(universal ? usbPairs(*vendor, *model, *serial) : usbUri(*vendor, *model, *serial), universal,
                    params, kUSBConnectionType,
                    {{kVendorNameProp, *vendor}, {kModelNameProp, *model}, {kSerialNumberParam, *serial}});
}

std::optional<std::string> ADMServiceURIGenerator::generateSocketURIforServiceInfo(ADMServiceInfo& service,
                                                                                   bool universal)
{
    const auto params = service.connectionParams();
    if (const auto host = textOf(params, kHostNameParam))
        return readableHost(universal ? hostPairs(*host) : hostUri(*host), universal, params, *host);
    const auto address = textOf(params, kIPAddressParam);
    if (!address)
        return refusal("ServiceInfo: cannot generate an Socket URI with unknown IP address (connection parameters %@).",
                       params);
    return readable(universal ? addressPairs(*address) : addressUri(*address), universal, params, kSocketConnectionType,
                    {{kIPAddressParam, *address}});
}

std::optional<std::string> ADMServiceURIGenerator::generateMDNSURIforServiceInfo(ADMServiceInfo& service,
                                                                                 bool universal)
{
    const auto params = service.connectionParams();
    auto name = textOf(params, kBonjourServiceNameParam);
    if (!name)
        name = service.deviceName();
    if (!name)
        return refusal("ServiceInfo: cannot generate an MDNS URI with unknown Bonjour name", params);

    auto domain = textOf(params, kBonjourServiceDomainParam);
    auto type = textOf(params, kBonjourServiceTypeParam);
    // Half a service type and domain is no better than none: a known one alone is dropped.
    if (!domain || !type) {
        domain = kDefaultBonjourDomain;
        type = kDefaultBonjourType;
    }
    return readable(
        universal ? bonjourPairs(*name, *type, *domain) : bonjourUri(*name, *type, *domain), universal, params,
        kRendezvousConnectionType,
        {{kBonjourServiceNameParam, *name}, {kBonjourServiceTypeParam, *type}, {kBonjourServiceDomainParam, *domain}});
}

std::optional<std::string> ADMServiceURIGenerator::generateBluetoothURIforServiceInfo(ADMServiceInfo& service,
                                                                                      bool universal)
{
    const auto params = service.connectionParams();
    const auto address = textOf(params, kMACAddressParam);
    if (!address)
        return refusal(
            "ServiceInfo: cannot generate an Bluetooth URI with unknown MAC address (connection parameters %@).",
            params);
    return readable(universal
                        ? joinedPairs({{kConnectionTypeProp, kBluetoothConnectionType}, {kMACAddressParam, *address}})
                        : joined({"bluetooth://", *address}),
                    universal, params, kBluetoothConnectionType, {{kMACAddressParam, *address}});
}

std::optional<std::string> ADMServiceURIGenerator::generateQLIPURIforServiceInfo(ADMServiceInfo& service,
                                                                                 bool universal)
{
    if (universal)
        return std::nullopt;
    const auto model = service.modelName();
    const auto params = service.connectionParams();
    if (!model)
        return refusal("ServiceInfo: cannot generate an QLIP URI with unknown model", params);
    const auto ipAddress = textOf(params, kIPAddressParam);
    if (!ipAddress)
        return refusal("ServiceInfo: cannot generate an QLIP URI with unknown IP address (connection parameters %@).",
                       params);
    const auto macAddress = textOf(params, kMACAddressParam);
    if (!macAddress)
        return refusal("ServiceInfo: cannot generate an QLIP URI with unknown MAC address (connection parameters %@).",
                       params);
    const auto interfaceNumber = textOf(params, kInterfaceNumberParam);
    if (!interfaceNumber)
        return refusal(
            "ServiceInfo: cannot generate an QLIP URI with unknown interface number (connection parameters %@).",
            params);
    return readable(joined({"vastel://", *ipAddress, ":", com_ql_dmf_stringByEncodingToURLNotation(*model), "/",
                            *interfaceNumber, "%3a", *macAddress}),
                    false, params, kQLIPConnectionType,
                    {{kModelNameProp, *model},
                     {kIPAddressParam, *ipAddress},
                     {kMACAddressParam, *macAddress},
                     {kInterfaceNumberParam, *interfaceNumber}});
}

// Nobody has settled how these two are written. They stand in the table, so that asking for them fails loudly.
std::optional<std::string> ADMServiceURIGenerator::generateIPPURIforServiceInfo(ADMServiceInfo&, bool)
{
    throw dmf::UnrecognizedOperation("ADMServiceURIGenerator", "generateIPPURIforServiceInfo:universal:");
}

std::optional<std::string> ADMServiceURIGenerator::generateLPDURIforServiceInfo(ADMServiceInfo&, bool)
{
    throw dmf::UnrecognizedOperation("ADMServiceURIGenerator", "generateLPDURIforServiceInfo:universal:");
}
