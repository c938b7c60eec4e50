#include <dmf/ADMServiceURIGenerator.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Error.h>

#include <algorithm>
#include <array>

#include "service/uris/UriForms.h"

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
    return pairs ? std::optional(universalUri(scheme, *pairs)) : std::nullopt;
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
    return universal ? usbPairs(*vendor, *model, *serial) : usbUri(*vendor, *model, *serial);
}

std::optional<std::string> ADMServiceURIGenerator::generateSocketURIforServiceInfo(ADMServiceInfo& service,
                                                                                   bool universal)
{
    const auto params = service.connectionParams();
    if (const auto host = textOf(params, kHostNameParam))
        return universal ? hostPairs(*host) : hostUri(*host);
    const auto address = textOf(params, kIPAddressParam);
    if (!address)
        return refusal("ServiceInfo: cannot generate an Socket URI with unknown IP address (connection parameters %@).",
                       params);
    return universal ? addressPairs(*address) : addressUri(*address);
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
    return universal ? bonjourPairs(*name, *type, *domain) : bonjourUri(*name, *type, *domain);
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
    if (universal)
        return joinedPairs({{kConnectionTypeProp, kBluetoothConnectionType}, {kMACAddressParam, *address}});
    return joined({"bluetooth://", *address});
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
    return joined({"vastel://", *ipAddress, ":", com_ql_dmf_stringByEncodingToURLNotation(*model), "/",
                   *interfaceNumber, "%3a", *macAddress});
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
