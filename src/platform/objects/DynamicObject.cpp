#include <dmf/platform/DynamicObject.h>

#include <algorithm>

#include <dmf/platform/Error.h>
#include <dmf/platform/Unicode.h>

namespace dmf {

UndefinedKey::UndefinedKey(std::string_view className, std::string_view key)
    : std::logic_error(std::string(className) + " has no value for the key '" + std::string(key) + "'")
{
}

UndefinedKey::~UndefinedKey() = default;

DynamicObject::DynamicObject() = default;

DynamicObject::~DynamicObject() = default;

bool DynamicObject::respondsTo(std::string_view operation) const
{
    return operations_.find(operation) != operations_.end();
}

std::optional<DynamicObject::Signature> DynamicObject::signatureOf(std::string_view operation) const
{
    if (!respondsTo(operation))
        return {};
    return Signature{static_cast<std::size_t>(std::ranges::count(operation, ':'))};
}

Value DynamicObject::perform(std::string_view operation, std::span<Value> arguments)
{
    const auto entry = operations_.find(operation);
    if (entry == operations_.end())
        throw UnrecognizedOperation(className(), operation);
    const auto wanted = static_cast<std::size_t>(std::ranges::count(operation, ':'));
    if (arguments.size() != wanted)
        throw std::invalid_argument(std::string(operation) + " takes " + std::to_string(wanted) + " arguments, not " +
                                    std::to_string(arguments.size()));
    const Operation function = entry->second; // it may replace itself
    return function(arguments);
}

Value DynamicObject::performWith(std::string_view operation, std::vector<Value> arguments)
{
    return perform(operation, arguments);
}

Value DynamicObject::valueForKey(std::string_view key)
{
    if (key.find(':') != std::string_view::npos || !respondsTo(key))
        throw UndefinedKey(className(), key);
    return perform(key);
}

void DynamicObject::setValueForKey(const Value& value, std::string_view key)
{
    const auto setter = "set" + withUppercasedFirstCharacter(key) + ":";
    if (key.find(':') != std::string_view::npos || !respondsTo(setter))
        throw UndefinedKey(className(), key);
    performWith(setter, {value});
}

std::vector<std::string> DynamicObject::operationNames() const
{
    std::vector<std::string> names;
    names.reserve(operations_.size());
    for (const auto& [name, operation] : operations_)
        names.push_back(name);
    return names;
}

std::string DynamicObject::className() const
{
    return "DynamicObject";
}

void DynamicObject::define(std::string name, Operation operation)
{
    operations_.insert_or_assign(std::move(name), std::move(operation));
}

std::string withUppercasedFirstCharacter(std::string_view key)
{
    if (key.empty())
        return {};
    std::string_view rest = key;
    (void)takeCharacter(rest);
    return uppercased(key.substr(0, key.size() - rest.size())) + std::string(rest);
}

} // namespace dmf
