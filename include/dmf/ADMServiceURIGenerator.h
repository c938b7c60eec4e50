#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

class ADMServiceInfo;

/// Writes the URI of a service from what the service knows: connection type, vendor, model, device name and connection
/// parameters. Has no state; reentrant. Refuses as well what the parser would not read back as the values that it was
/// made from: "Bob & Alice" cannot be said in a universal URI, a host name with a blank in none. A refusal says in the
/// log, at "debug", what is wrong. Each operation may block as `vendorName`, `modelName` and `deviceName` of the
/// service do.
class DMF_EXPORT ADMServiceURIGenerator {
public:
    /// An operation for one connection type. It gives the standard URI or, when `universal`, the universal URI's pairs,
    /// each with "&" before it; nothing when the service does not know enough.
    using Operation = std::optional<std::string> (ADMServiceURIGenerator::*)(ADMServiceInfo& service, bool universal);

    /// Nothing for a null service, for an unknown connection type, and when the service does not know enough. Throws
    /// dmf::UnrecognizedOperation for the types "IPP" and "LPD", whose URIs can be read but not written.
    [[nodiscard]] std::optional<std::string> generateURIForServiceInfo(const std::shared_ptr<ADMServiceInfo>& service);
    /// The same in the universal form, which "QLIP" does not have; `scheme` is none of a transport's.
    [[nodiscard]] std::optional<std::string>
    generateUniversalURIForServiceInfo(const std::shared_ptr<ADMServiceInfo>& service, std::string_view scheme);
    /// Null for a type that is missing or unknown.
    [[nodiscard]] static Operation generatorForConnectionType(std::optional<std::string_view> connectionType);

    [[nodiscard]] std::optional<std::string> generateUSBURIforServiceInfo(ADMServiceInfo& service,
                                                                          bool universal = false);
    [[nodiscard]] std::optional<std::string> generateMDNSURIforServiceInfo(ADMServiceInfo& service,
                                                                           bool universal = false);
    [[nodiscard]] std::optional<std::string> generateQLIPURIforServiceInfo(ADMServiceInfo& service,
                                                                           bool universal = false);
    [[nodiscard]] std::optional<std::string> generateSocketURIforServiceInfo(ADMServiceInfo& service,
                                                                             bool universal = false);
    [[nodiscard]] std::optional<std::string> generateBluetoothURIforServiceInfo(ADMServiceInfo& service,
                                                                                bool universal = false);

private:
    [[nodiscard]] std::optional<std::string> generateIPPURIforServiceInfo(ADMServiceInfo& service, bool universal);
    [[nodiscard]] std::optional<std::string> generateLPDURIforServiceInfo(ADMServiceInfo& service, bool universal);
};
