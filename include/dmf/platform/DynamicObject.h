#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// Thrown when a value is asked for, or set, under a key for which an object has neither an operation: a programming
/// error, never a report.
class DMF_EXPORT UndefinedKey : public std::logic_error {
public:
    UndefinedKey(std::string_view className, std::string_view key);
    ~UndefinedKey() override;
};

/// An object whose operations are found by their names at run time: a table from name to function. A name has one ":"
/// for each argument: "name", "setName:", "validateName:error:". Reentrant.
class DMF_EXPORT DynamicObject {
public:
    /// What an operation does with its arguments, which it may change for its caller; gives its result or null.
    using Operation = std::function<Value(std::span<Value> arguments)>;
    struct Signature {
        std::size_t argumentCount = 0;
        friend bool operator==(const Signature&, const Signature&) = default;
    };

    virtual ~DynamicObject();
    DynamicObject(const DynamicObject&) = delete;
    DynamicObject& operator=(const DynamicObject&) = delete;

    [[nodiscard]] virtual bool respondsTo(std::string_view operation) const;
    /// Nothing for an operation that the object does not have.
    [[nodiscard]] virtual std::optional<Signature> signatureOf(std::string_view operation) const;
    /// Throws UnrecognizedOperation for an operation that the object does not have, and std::invalid_argument for the
    /// wrong number of arguments.
    virtual Value perform(std::string_view operation, std::span<Value> arguments = {});
    /// The same with arguments that the caller does not want back.
    Value performWith(std::string_view operation, std::vector<Value> arguments);

    /// The value of the operation named by the key. Throws UndefinedKey when there is none.
    [[nodiscard]] virtual Value valueForKey(std::string_view key);
    /// Hands the value to the operation "setKey:", the key's first letter in upper case. Throws UndefinedKey when
    /// there is none.
    virtual void setValueForKey(const Value& value, std::string_view key);

    /// The operations' names, sorted.
    [[nodiscard]] std::vector<std::string> operationNames() const;
    /// The name of the class in messages.
    [[nodiscard]] virtual std::string className() const;

protected:
    DynamicObject();
    /// Adds an operation, or replaces the one of that name.
    void define(std::string name, Operation operation);

private:
    std::map<std::string, Operation, std::less<>> operations_;
};

/// The key with its first character in upper case, the rest unchanged.
[[nodiscard]] DMF_EXPORT std::string withUppercasedFirstCharacter(std::string_view key);

} // namespace dmf
