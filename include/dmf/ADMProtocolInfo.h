#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

class ADMInfo;

/// One protocol that a service speaks: what implements it and which features it has. Immutable; thread-safe.
class DMF_EXPORT ADMProtocolInfo {
public:
    using Texts = std::map<std::string, std::string, std::less<>>;

    /// Over a "Protocol" node; empty without one.
    [[nodiscard]] static std::shared_ptr<ADMProtocolInfo> initWithInfo(std::shared_ptr<ADMInfo> info);

    [[nodiscard]] std::optional<std::string> implementorClassName() const;
    /// The features by name with their texts; a feature that has properties instead has the empty text.
    [[nodiscard]] Texts supportedFeatures() const;
    /// The properties of one feature with their texts; empty when there are none.
    [[nodiscard]] Texts supportedPropertiesForFeature(std::string_view feature) const;

private:
    explicit ADMProtocolInfo(std::shared_ptr<ADMInfo> info);
    const std::shared_ptr<ADMInfo> info_;
};
