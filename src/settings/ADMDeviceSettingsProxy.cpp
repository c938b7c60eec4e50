#include <dmf/ADMDeviceSettingsProxy.h>

#include <algorithm>

#include <dmf/DMCore.h>
#include <dmf/platform/Format.h>
#include <dmf/platform/Unicode.h>

#include "settings/SettingsError.h"

namespace {

constexpr std::string_view kOperations[] = {"supportedKeys", "isKeySupported:",  "isKeyReadOnly:",
                                            "valueForKey:",  "setValue:forKey:", "validateValue:forKey:error:"};
constexpr dmf::Protocol kProtocol("IDMDeviceSettings", {}, kOperations);

} // namespace

const dmf::Protocol& IDMDeviceSettings::protocol()
{
    return kProtocol;
}

IDMDeviceSettings::~IDMDeviceSettings() = default;

std::shared_ptr<ADMDeviceSettingsProxy>
ADMDeviceSettingsProxy::initWithModel(std::shared_ptr<ADMDeviceSettingsModel> model)
{
    return model ? std::make_shared<ADMDeviceSettingsProxy>(Passkey(), std::move(model)) : nullptr;
}

ADMDeviceSettingsProxy::ADMDeviceSettingsProxy(Passkey, std::shared_ptr<ADMDeviceSettingsModel> model)
    : model_(std::move(model))
{
    using Arguments = std::span<dmf::Value>;
    const auto text = [](const dmf::Value& argument) { return argument.string().value_or(std::string()); };
    define("model", [this](Arguments) { return dmf::Value::ofObject(model_); });
    define("supportedKeys", [this](Arguments) { return dmf::Array::ofStrings(supportedKeys()); });
    define("isKeySupported:", [this, text](Arguments given) { return isKeySupported(text(given[0])); });
    define("isKeyReadOnly:", [this, text](Arguments given) { return isKeyReadOnly(text(given[0])); });
    define("valueForKey:", [this, text](Arguments given) { return valueForKey(text(given[0])); });
    define("setValue:forKey:", [this, text](Arguments given) {
        setValueForKey(given[0], text(given[1]));
        return dmf::Value();
    });
    define("validateValue:forKey:error:", [this, text](Arguments given) {
        return dmf::internal::validateByName(
            given, [&](dmf::Value& value, dmf::Error* error) { return validateValue(value, text(given[1]), error); });
    });
    define("modifiedValueKeys", [this](Arguments) {
        return dmf::Array::ofStrings({modifiedValueKeys_.begin(), modifiedValueKeys_.end()});
    });
    define("keyFromSetSelector:", [this, text](Arguments given) { return keyFromSetSelector(text(given[0])); });
    define("isEqual:", [this](Arguments given) {
        const auto other = given[0].objectAs<ADMDeviceSettingsProxy>();
        return other && isEqual(*other);
    });
    define("hash", [this](Arguments) { return hash(); });
    define("description", [this](Arguments) { return description(); });
}

ADMDeviceSettingsProxy::~ADMDeviceSettingsProxy() = default;

std::vector<std::string> ADMDeviceSettingsProxy::supportedKeys() const
{
    return model_->supportedKeys();
}

bool ADMDeviceSettingsProxy::isKeySupported(std::string_view key) const
{
    const auto keys = supportedKeys();
    return std::ranges::find(keys, key) != keys.end();
}

bool ADMDeviceSettingsProxy::isKeyReadOnly(std::string_view key) const
{
    return model_->isKeyReadOnly(key);
}

dmf::Value ADMDeviceSettingsProxy::valueForKey(std::string_view key)
{
    if (isKeySupported(key))
        return model_->valueForKey(key);
    // This object's own operations only: what the model has beside its supported keys stays hidden.
    if (key.find(':') == key.npos && DynamicObject::respondsTo(key))
        return DynamicObject::perform(key);
    throw dmf::UndefinedKey(className(), key);
}

void ADMDeviceSettingsProxy::setValueForKey(const dmf::Value& value, std::string_view key)
{
    if (isKeyReadOnly(key))
        return;
    if (!isKeySupported(key))
        throw dmf::UndefinedKey(className(), key); // this object has no setter of its own
    model_->setValueForKey(value, key);
    modifiedValueKeys_.emplace(key);
}

bool ADMDeviceSettingsProxy::validateValue(dmf::Value& value, std::string_view key, dmf::Error* error)
{
    return isKeySupported(key) ? model_->validateValue(value, key, error) : dmf::internal::refuseSetting(error);
}

std::optional<std::string> ADMDeviceSettingsProxy::keyFromSetSelector(std::string_view operation) const
{
    constexpr std::string_view prefix = "set";
    if (!operation.starts_with(prefix) || !operation.ends_with(':') || operation.size() < prefix.size() + 2)
        return {};
    const auto name = operation.substr(prefix.size(), operation.size() - prefix.size() - 1);
    std::string_view rest = name;
    (void)dmf::takeCharacter(rest);
    auto key = dmf::lowercased(name.substr(0, name.size() - rest.size())) + std::string(rest);
    return isKeySupported(key) ? key : dmf::withUppercasedFirstCharacter(name);
}

dmf::Value ADMDeviceSettingsProxy::perform(std::string_view operation, std::span<dmf::Value> arguments)
{
    if (DynamicObject::respondsTo(operation) || !model_->respondsTo(operation))
        return DynamicObject::perform(operation, arguments);
    if (!model_->allowsSelector(operation))
        return {};
    const auto key = keyFromSetSelector(operation);
    if (!key)
        return model_->perform(operation, arguments);
    if (isKeyReadOnly(*key))
        return {};
    auto result = model_->perform(operation, arguments);
    modifiedValueKeys_.insert(*key);
    return result;
}

bool ADMDeviceSettingsProxy::respondsTo(std::string_view operation) const
{
    return model_->respondsTo(operation) || DynamicObject::respondsTo(operation);
}

std::optional<dmf::DynamicObject::Signature> ADMDeviceSettingsProxy::signatureOf(std::string_view operation) const
{
    return DynamicObject::respondsTo(operation) ? DynamicObject::signatureOf(operation)
                                                : model_->signatureOf(operation);
}

bool ADMDeviceSettingsProxy::conformsToProtocol(const dmf::Protocol& protocol) const
{
    return DMObjCProtocolsEqual(&protocol, &model_->modelProtocol()) ||
           IDMDeviceSettings::protocol().conformsTo(protocol);
}

bool ADMDeviceSettingsProxy::isEqual(ADMDeviceSettingsProxy& other)
{
    return std::ranges::all_of(supportedKeys(), [&](const std::string& key) {
        return other.isKeySupported(key) && valueForKey(key) == other.valueForKey(key);
    });
}

std::uint32_t ADMDeviceSettingsProxy::hash()
{
    std::uint32_t sum = 0;
    for (const std::string& key : supportedKeys())
        sum += valueForKey(key).hash();
    return sum;
}

std::string ADMDeviceSettingsProxy::description()
{
    dmf::Dictionary values;
    for (const std::string& key : supportedKeys())
        values.set(key, valueForKey(key));
    return dmf::formatted("<%@: %p> %@", className(), static_cast<const void*>(this), values);
}

std::string ADMDeviceSettingsProxy::className() const
{
    return "ADMDeviceSettingsProxy";
}
