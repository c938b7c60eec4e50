#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMDeviceSettingsModel.h>
#include <dmf/IDMDeviceSettings.h>
#include <dmf/platform/DynamicObject.h>
#include <dmf/platform/Export.h>

/// Stands in front of a settings model: shows only its supported keys, lets nobody write a read-only one, and notes
/// which keys were changed. Other operations go on to the model where they concern a supported key. Reentrant.
class DMF_EXPORT ADMDeviceSettingsProxy final : public dmf::DynamicObject, public IDMDeviceSettings {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Empty without a model.
    [[nodiscard]] static std::shared_ptr<ADMDeviceSettingsProxy>
    initWithModel(std::shared_ptr<ADMDeviceSettingsModel> model);
    ADMDeviceSettingsProxy(Passkey, std::shared_ptr<ADMDeviceSettingsModel> model);
    ~ADMDeviceSettingsProxy() override;

    [[nodiscard]] const std::shared_ptr<ADMDeviceSettingsModel>& model() const noexcept { return model_; }

    [[nodiscard]] std::vector<std::string> supportedKeys() const override;
    [[nodiscard]] bool isKeySupported(std::string_view key) const override;
    [[nodiscard]] bool isKeyReadOnly(std::string_view key) const override;
    /// A key that is not supported is looked up among this object's own operations, "modifiedValueKeys" for example.
    [[nodiscard]] dmf::Value valueForKey(std::string_view key) override;
    void setValueForKey(const dmf::Value& value, std::string_view key) override;
    [[nodiscard]] bool validateValue(dmf::Value& value, std::string_view key, dmf::Error* error) override;

    /// The keys that were changed through this object so far: the set itself, which grows with further changes.
    [[nodiscard]] const std::set<std::string, std::less<>>& modifiedValueKeys() const noexcept
    {
        return modifiedValueKeys_;
    }
    [[nodiscard]] std::set<std::string, std::less<>>& mutableModifiedValueKeys() noexcept { return modifiedValueKeys_; }

    /// The supported key that "setKey:" sets: the name's fourth character in lower case and the rest, or the same with
    /// a capital when that is not supported; nothing for a name of another form.
    [[nodiscard]] std::optional<std::string> keyFromSetSelector(std::string_view operation) const;

    /// This object's own operations by their names (an error slot takes a dmf::Error object, and "modifiedValueKeys"
    /// gives an array), else the model's. An operation of the model's that concerns no supported key, and a setter of a
    /// read-only key, does nothing and gives null; a setter of a supported key makes the key count as changed. Throws
    /// dmf::UnrecognizedOperation for what neither has.
    dmf::Value perform(std::string_view operation, std::span<dmf::Value> arguments = {}) override;
    [[nodiscard]] bool respondsTo(std::string_view operation) const override;
    [[nodiscard]] std::optional<Signature> signatureOf(std::string_view operation) const override;

    /// Whether the interface is the model's own (by name) or one that this class implements.
    [[nodiscard]] bool conformsToProtocol(const dmf::Protocol& protocol) const;
    /// Equal values under every supported key.
    [[nodiscard]] bool isEqual(ADMDeviceSettingsProxy& other);
    [[nodiscard]] std::uint32_t hash();
    [[nodiscard]] std::string description();
    [[nodiscard]] std::string className() const override;

private:
    const std::shared_ptr<ADMDeviceSettingsModel> model_;
    std::set<std::string, std::less<>> modifiedValueKeys_;
};
