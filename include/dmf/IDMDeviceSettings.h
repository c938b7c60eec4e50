#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

/// The settings of a device by key. Reentrant.
class DMF_EXPORT IDMDeviceSettings {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMDeviceSettings();

    [[nodiscard]] virtual std::vector<std::string> supportedKeys() const = 0;
    [[nodiscard]] virtual bool isKeySupported(std::string_view key) const = 0;
    [[nodiscard]] virtual bool isKeyReadOnly(std::string_view key) const = 0;
    /// Throws dmf::UndefinedKey for a key that is not supported.
    [[nodiscard]] virtual dmf::Value valueForKey(std::string_view key) = 0;
    /// Changes nothing for a read-only key; throws dmf::UndefinedKey for one that is not supported.
    virtual void setValueForKey(const dmf::Value& value, std::string_view key) = 0;
    /// Whether the value may be set. It may be replaced by the nearest one that may. A refusal fills `error`, unless it
    /// is null, with code -1001 of the domain kDMDeviceSettingsDomain.
    [[nodiscard]] virtual bool validateValue(dmf::Value& value, std::string_view key, dmf::Error* error) = 0;
};
