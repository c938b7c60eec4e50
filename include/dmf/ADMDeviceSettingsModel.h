#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Date.h>
#include <dmf/platform/DynamicObject.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Unicode.h>
#include <dmf/platform/Value.h>

/// Limits of a setting. For strings: the shortest and the longest length in characters. For numbers: the smallest
/// value, and how many values there are from it on.
struct DMSettingRange {
    std::uint32_t location = 0;
    std::uint32_t length = 0;
    friend bool operator==(DMSettingRange, DMSettingRange) = default;
};

/// Base of the models of a device's settings. What may be set is told by operations named after the key K:
///
///     KValues            the allowed values (an array)
///     KCharacterSet      the allowed characters (a dmf::CharacterSet object)
///     KRange             the limits (a DMSettingRange object)
///     validateK:error:   the setting's own validation, K with its first letter in upper case
///
/// A concrete model defines them, and the settings themselves ("K" and "setK:"), in its constructor. The operations
/// below that take and give values can be performed by their names as well ("supportedValuesForKey:"). Reentrant.
class DMF_EXPORT ADMDeviceSettingsModel : public dmf::DynamicObject {
public:
    ~ADMDeviceSettingsModel() override;

    /// Each left to the concrete model; these throw dmf::UnrecognizedOperation.
    [[nodiscard]] virtual std::vector<std::string> supportedKeys() const;
    [[nodiscard]] virtual const dmf::Protocol& modelProtocol() const;
    /// False for every key unless the concrete model says otherwise.
    [[nodiscard]] virtual bool isKeyReadOnly(std::string_view key) const;

    /// Runs the setting's own validation; a key without one accepts everything. `value` may be replaced, `error`,
    /// unless null, is filled by a refusal, with the general error of settings where the validation gives none.
    [[nodiscard]] virtual bool validateValue(dmf::Value& value, std::string_view key, dmf::Error* error);

    /// What a setting's own validation is made of. Each refuses a value that is missing or of another kind, and changes
    /// `value` only when it accepts it, save that `validateEmailValue` leaves the cleaned string behind.
    ///
    /// Takes out the characters that are not allowed and cuts to the longest length; refuses what is empty then or
    /// shorter than the shortest length.
    [[nodiscard]] bool validateStringValue(dmf::Value& value, std::string_view key, dmf::Error* error);
    /// The same, and there must be exactly one "@" with text on both sides.
    [[nodiscard]] bool validateEmailValue(dmf::Value& value, std::string_view key, dmf::Error* error);
    /// Takes the number's low 32 bits as unsigned, so a negative one counts as a huge one, and moves that into the
    /// range; without a range the value stays as it is. A range with a location and no length leaves nothing from the
    /// location on: every such value becomes the one before it.
    [[nodiscard]] bool validateNumberValue(dmf::Value& value, std::string_view key, dmf::Error* error);
    /// Moves a date that is over, or within the current minute, to the start of the next minute.
    [[nodiscard]] bool validateDateValue(dmf::Value& value, std::string_view key, dmf::Error* error);
    /// The string must be one of the allowed values; without any, or with an empty list of them, each string may be.
    [[nodiscard]] bool validateEnumeratedValue(dmf::Value& value, std::string_view key, dmf::Error* error);

    /// Nothing where the model defines none.
    [[nodiscard]] std::optional<dmf::Array> supportedValuesForKey(std::string_view key);
    [[nodiscard]] std::optional<dmf::CharacterSet> supportedCharacterSetForKey(std::string_view key);
    /// (0, 0) where the model defines none.
    [[nodiscard]] DMSettingRange supportedRangeOfValuesForKey(std::string_view key);

    /// `text` without the characters that the key does not allow.
    [[nodiscard]] std::string stringWithSupportedCharactersForString(std::string_view text, std::string_view key);
    /// `text` cut to the key's longest length in characters; nothing when it is shorter than the shortest. A longest
    /// length below 2 means no limit.
    [[nodiscard]] std::optional<std::string> truncatedStringForString(std::string_view text, std::string_view key);
    [[nodiscard]] std::string stringWithUppercasedFirstCharacterFromString(std::string_view text) const;
    /// The start of the minute after the current one, in the local time zone's calendar.
    [[nodiscard]] dmf::Date startOfNextMinute() const;
    /// Whether a supported key occurs in the operation's name, whatever the letter case.
    [[nodiscard]] bool allowsSelector(std::string_view operation) const;

    [[nodiscard]] std::string className() const override;

protected:
    ADMDeviceSettingsModel();

    using Validator = std::function<bool(dmf::Value& value, dmf::Error* error)>;
    /// The setting itself: how it is read and, unless the function is empty, written.
    void defineSetting(std::string_view key, std::function<dmf::Value()> read,
                       std::function<void(const dmf::Value&)> write = {});
    void defineValues(std::string_view key, dmf::Array values);
    void defineCharacterSet(std::string_view key, dmf::CharacterSet characters);
    void defineRange(std::string_view key, DMSettingRange range);
    void defineValidator(std::string_view key, Validator validator);
};
