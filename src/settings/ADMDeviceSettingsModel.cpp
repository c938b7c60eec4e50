#include <dmf/ADMDeviceSettingsModel.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>

#include <dmf/DMKeys.h>

#include "settings/SettingsError.h"

namespace {

/// The value that a parameterless operation named by the key and a suffix gives; null where there is none.
dmf::Value attribute(dmf::DynamicObject& model, std::string_view key, std::string_view suffix)
{
    const auto operation = std::string(key) + std::string(suffix);
    return model.respondsTo(operation) ? model.perform(operation) : dmf::Value();
}

std::size_t countCharacters(std::string_view text)
{
    std::size_t count = 0;
    for (; !text.empty(); ++count)
        (void)dmf::takeCharacter(text);
    return count;
}

std::string firstCharacters(std::string_view text, std::size_t count)
{
    std::string_view rest = text;
    while (count-- > 0 && !rest.empty())
        (void)dmf::takeCharacter(rest);
    return std::string(text.substr(0, text.size() - rest.size()));
}

std::string text(const dmf::Value& argument)
{
    return argument.string().value_or(std::string());
}

/// What the number's 32 low bits are as an unsigned number: a negative one lies far beyond every limit.
std::uint32_t unsigned32(const dmf::Number& number) noexcept
{
    return number.kind() == dmf::Number::Kind::unsignedInteger ? static_cast<std::uint32_t>(number.uint64Value())
                                                               : static_cast<std::uint32_t>(number.int64Value());
}

using Arguments = std::span<dmf::Value>;
using Model = ADMDeviceSettingsModel;

struct NamedValidation {
    const char* name;
    bool (Model::*validate)(dmf::Value&, std::string_view, dmf::Error*);
};
constexpr NamedValidation kValidations[] = {
    {"validateValue:forKey:error:", &Model::validateValue},
    {"validateStringValue:forKey:error:", &Model::validateStringValue},
    {"validateEmailValue:forKey:error:", &Model::validateEmailValue},
    {"validateNumberValue:forKey:error:", &Model::validateNumberValue},
    {"validateDateValue:forKey:error:", &Model::validateDateValue},
    {"validateEnumeratedValue:forKey:error:", &Model::validateEnumeratedValue},
};

} // namespace

ADMDeviceSettingsModel::ADMDeviceSettingsModel()
{
    define("supportedKeys", [this](Arguments) { return dmf::Array::ofStrings(supportedKeys()); });
    define("isKeyReadOnly:", [this](Arguments given) { return isKeyReadOnly(text(given[0])); });
    define("allowsSelector:", [this](Arguments given) { return allowsSelector(text(given[0])); });
    define("startOfNextMinute", [this](Arguments) { return startOfNextMinute(); });
    define("stringWithUppercasedFirstCharacterFromString:",
           [this](Arguments given) { return stringWithUppercasedFirstCharacterFromString(text(given[0])); });
    define("stringWithSupportedCharactersForString:key:",
           [this](Arguments given) { return stringWithSupportedCharactersForString(text(given[0]), text(given[1])); });
    define("truncatedStringForString:key:",
           [this](Arguments given) { return truncatedStringForString(text(given[0]), text(given[1])); });
    define("supportedValuesForKey:", [this](Arguments given) {
        auto values = supportedValuesForKey(text(given[0]));
        return values ? dmf::Value(*std::move(values)) : dmf::Value();
    });
    define("supportedCharacterSetForKey:", [this](Arguments given) {
        auto set = supportedCharacterSetForKey(text(given[0]));
        return set ? dmf::Value::ofObject(std::make_shared<dmf::CharacterSet>(*std::move(set))) : dmf::Value();
    });
    define("supportedRangeOfValuesForKey:", [this](Arguments given) {
        return dmf::Value::ofObject(std::make_shared<DMSettingRange>(supportedRangeOfValuesForKey(text(given[0]))));
    });
    for (const auto& [name, validate] : kValidations)
        define(name, [this, validate = validate](Arguments given) {
            return dmf::internal::validateByName(given, [&](dmf::Value& value, dmf::Error* error) {
                return (this->*validate)(value, text(given[1]), error);
            });
        });
}

ADMDeviceSettingsModel::~ADMDeviceSettingsModel() = default;

std::vector<std::string> ADMDeviceSettingsModel::supportedKeys() const
{
    throw dmf::UnrecognizedOperation(className(), "supportedKeys");
}

const dmf::Protocol& ADMDeviceSettingsModel::modelProtocol() const
{
    throw dmf::UnrecognizedOperation(className(), "modelProtocol");
}

bool ADMDeviceSettingsModel::isKeyReadOnly(std::string_view) const
{
    return false;
}

bool ADMDeviceSettingsModel::validateValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    const auto operation = "validate" + stringWithUppercasedFirstCharacterFromString(key) + ":error:";
    if (!respondsTo(operation))
        return true;
    dmf::Value arguments[] = {value, {}};
    const dmf::Value result = perform(operation, arguments);
    value = arguments[0];
    if (result == true)
        return true;
    const auto reported = arguments[1].objectAs<dmf::Error>();
    if (!reported || !error)
        return dmf::internal::refuseSetting(error);
    *error = *reported;
    return false;
}

bool ADMDeviceSettingsModel::validateStringValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    const auto* text = value.asString();
    if (!text)
        return dmf::internal::refuseSetting(error);
    auto cleaned = truncatedStringForString(stringWithSupportedCharactersForString(*text, key), key);
    if (!cleaned || cleaned->empty())
        return dmf::internal::refuseSetting(error);
    value = std::move(*cleaned);
    return true;
}

bool ADMDeviceSettingsModel::validateEmailValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    if (!validateStringValue(value, key, error))
        return false;
    const std::string& address = *value.asString();
    const auto at = address.find('@');
    if (at == std::string::npos || at == 0 || at + 1 == address.size() || address.find('@', at + 1) != address.npos)
        return dmf::internal::refuseSetting(error);
    return true;
}

bool ADMDeviceSettingsModel::validateNumberValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    const auto* number = value.asNumber();
    if (!number)
        return dmf::internal::refuseSetting(error);
    const std::uint32_t given = unsigned32(*number);
    const auto [location, length] = supportedRangeOfValuesForKey(key);
    if (location != 0 && given < location)
        value = location;
    else if (location == 0 && length == 0)
        return true;
    else if (given >= std::uint64_t{location} + length)
        value = static_cast<std::uint32_t>(std::uint64_t{location} + length - 1);
    else if (number->int64Value() != given || std::isnan(number->doubleValue()))
        value = given; // only the low bits lie in the range; a number with a fraction stays what it is
    return true;
}

bool ADMDeviceSettingsModel::validateDateValue(dmf::Value& value, std::string_view, dmf::Error* error)
{
    const auto* date = value.asDate();
    if (!date)
        return dmf::internal::refuseSetting(error);
    const auto earliest = startOfNextMinute();
    if (*date < earliest)
        value = earliest;
    return true;
}

bool ADMDeviceSettingsModel::validateEnumeratedValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    if (!value.asString())
        return dmf::internal::refuseSetting(error);
    const auto allowed = supportedValuesForKey(key);
    return !allowed || allowed->empty() || allowed->contains(value) || dmf::internal::refuseSetting(error);
}

std::optional<dmf::Array> ADMDeviceSettingsModel::supportedValuesForKey(std::string_view key)
{
    const auto values = attribute(*this, key, "Values");
    const auto* list = values.asArray();
    return list ? std::optional(*list) : std::nullopt;
}

std::optional<dmf::CharacterSet> ADMDeviceSettingsModel::supportedCharacterSetForKey(std::string_view key)
{
    const auto characters = attribute(*this, key, "CharacterSet").objectAs<dmf::CharacterSet>();
    return characters ? std::optional(*characters) : std::nullopt;
}

DMSettingRange ADMDeviceSettingsModel::supportedRangeOfValuesForKey(std::string_view key)
{
    const auto range = attribute(*this, key, "Range").objectAs<DMSettingRange>();
    return range ? *range : DMSettingRange();
}

std::string ADMDeviceSettingsModel::stringWithSupportedCharactersForString(std::string_view text, std::string_view key)
{
    const auto allowed = supportedCharacterSetForKey(key);
    if (!allowed)
        return std::string(text);
    std::string result;
    for (std::string_view rest = text; !rest.empty();) {
        const auto before = rest;
        if (allowed->contains(dmf::takeCharacter(rest)))
            result += before.substr(0, before.size() - rest.size());
    }
    return result;
}

std::optional<std::string> ADMDeviceSettingsModel::truncatedStringForString(std::string_view text, std::string_view key)
{
    const auto [shortest, longest] = supportedRangeOfValuesForKey(key);
    if (countCharacters(text) < shortest)
        return {};
    return longest < 2 ? std::string(text) : firstCharacters(text, longest);
}

std::string ADMDeviceSettingsModel::stringWithUppercasedFirstCharacterFromString(std::string_view text) const
{
    return dmf::withUppercasedFirstCharacter(text);
}

dmf::Date ADMDeviceSettingsModel::startOfNextMinute() const
{
    // Zones with offsets of odd seconds exist, so the minute is the calendar's and not a multiple of 60 seconds.
    const auto now = static_cast<std::time_t>(dmf::Date::now().secondsSince1970());
    std::tm fields{};
    ::localtime_r(&now, &fields);
    const std::time_t start = now - fields.tm_sec;
    return dmf::Date(static_cast<double>(start + 60));
}

bool ADMDeviceSettingsModel::allowsSelector(std::string_view operation) const
{
    return std::ranges::any_of(
        supportedKeys(), [&](const std::string& key) { return dmf::findIgnoringCase(operation, key).has_value(); });
}

std::string ADMDeviceSettingsModel::className() const
{
    return "ADMDeviceSettingsModel";
}

void ADMDeviceSettingsModel::defineSetting(std::string_view key, std::function<dmf::Value()> read,
                                           std::function<void(const dmf::Value&)> write)
{
    define(std::string(key), [read = std::move(read)](std::span<dmf::Value>) { return read(); });
    if (!write)
        return;
    define("set" + dmf::withUppercasedFirstCharacter(key) + ":",
           [write = std::move(write)](std::span<dmf::Value> arguments) {
               write(arguments[0]);
               return dmf::Value();
           });
}

void ADMDeviceSettingsModel::defineValues(std::string_view key, dmf::Array values)
{
    define(std::string(key) + "Values",
           [values = std::move(values)](std::span<dmf::Value>) { return dmf::Value(values); });
}

void ADMDeviceSettingsModel::defineCharacterSet(std::string_view key, dmf::CharacterSet characters)
{
    define(std::string(key) + "CharacterSet", [shared = std::make_shared<dmf::CharacterSet>(std::move(characters))](
                                                  std::span<dmf::Value>) { return dmf::Value::ofObject(shared); });
}

void ADMDeviceSettingsModel::defineRange(std::string_view key, DMSettingRange range)
{
    define(std::string(key) + "Range", [shared = std::make_shared<DMSettingRange>(range)](std::span<dmf::Value>) {
        return dmf::Value::ofObject(shared);
    });
}

void ADMDeviceSettingsModel::defineValidator(std::string_view key, Validator validator)
{
    define("validate" + dmf::withUppercasedFirstCharacter(key) + ":error:",
           [validator = std::move(validator)](Arguments given) {
               return dmf::internal::validateByName(given, validator);
           });
}
