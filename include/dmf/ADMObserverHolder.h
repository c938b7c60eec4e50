#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <dmf/platform/DynamicObject.h>
#include <dmf/platform/Export.h>

/// Remembers whom to tell of something, and by which operation. The observer is not kept alive. Reentrant.
class DMF_EXPORT ADMObserverHolder {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Empty without an object, without an operation, and for an object that does not have the operation.
    [[nodiscard]] static std::shared_ptr<ADMObserverHolder>
    initWithObject(const std::shared_ptr<dmf::DynamicObject>& object, std::string_view operation);
    [[nodiscard]] static std::shared_ptr<ADMObserverHolder>
    holderWithObject(const std::shared_ptr<dmf::DynamicObject>& object, std::string_view operation)
    {
        return initWithObject(object, operation);
    }
    ADMObserverHolder(Passkey, const std::shared_ptr<dmf::DynamicObject>& object, std::string_view operation)
        : object_(object), selector_(operation)
    {
    }

    /// The observer; empty once it has gone.
    [[nodiscard]] std::shared_ptr<dmf::DynamicObject> object() const { return object_.lock(); }
    [[nodiscard]] const std::string& selector() const noexcept { return selector_; }

private:
    const std::weak_ptr<dmf::DynamicObject> object_;
    const std::string selector_;
};
