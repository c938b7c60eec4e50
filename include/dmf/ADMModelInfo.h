#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

class ADMFunctionalInfo;
class ADMInfo;
class ADMTransportInfo;

/// What the model database says of one device model. Every result is empty where the database says nothing.
/// Thread-safe. The first look-up reads and deciphers files; later ones answer from memory.
class DMF_EXPORT ADMModelInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMModelInfo();

    /// The name that the object was made with.
    [[nodiscard]] virtual std::string modelName() const = 0;
    [[nodiscard]] virtual std::optional<std::string> vendorName() = 0;
    [[nodiscard]] virtual std::optional<std::string> familyName() = 0;
    [[nodiscard]] virtual std::optional<std::string> pathToIcon() = 0;
    [[nodiscard]] virtual std::optional<std::string> utilityName() = 0;
    [[nodiscard]] virtual std::optional<std::string> utilitySignature() = 0;
    [[nodiscard]] virtual std::optional<std::string> modelCodeName() = 0;
    [[nodiscard]] virtual std::optional<std::string> modelId() = 0;

    /// The nodes that `path` selects in the model's tree of `table`. The library's own table is reached only through
    /// the key kDMFTableName itself; an equal text of another origin names an ordinary table.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMInfo>> infoForPath(std::string_view path,
                                                                            std::string_view table) = 0;
    /// The raw value of the first node that `path` selects; null when there is none.
    [[nodiscard]] virtual dmf::Value valueForInfoPath(std::string_view path, std::string_view table) = 0;
};

/// The part of the model information that functional services and transports ask for. Thread-safe.
class DMF_EXPORT ADMCoreModelInfo : public ADMModelInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    ~ADMCoreModelInfo() override;

    [[nodiscard]] virtual std::shared_ptr<ADMTransportInfo> transportInfo() = 0;
    /// The interfaces of a device class such as "printer", or nothing.
    [[nodiscard]] virtual std::vector<std::string>
    availableFunctionalInterfacesForServiceName(std::string_view deviceClassName) = 0;
    /// The services that implement an interface such as "print", over all device classes.
    [[nodiscard]] virtual std::vector<std::string>
    availableProtocolsForFunctionalInterface(std::string_view interfaceName) = 0;
    /// The interface named by the last two parts of a dotted name ("com.ql.printer.print") over a connection type.
    [[nodiscard]] virtual std::shared_ptr<ADMFunctionalInfo> functionalInfo(std::string_view interfaceName,
                                                                            std::string_view connectionType) = 0;
};
