#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// The usual object of a message queue: a name, an object, or both. Immutable; thread-safe.
class DMF_EXPORT ADMQueueMessage {
public:
    /// Empty when there is neither a name nor an object, here and below.
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> initWithName(std::optional<std::string> name,
                                                                       dmf::Value object);
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> initWithName(std::optional<std::string> name)
    {
        return initWithName(std::move(name), {});
    }
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> initWithObject(dmf::Value object)
    {
        return initWithName(std::nullopt, std::move(object));
    }
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> init() { return initWithName(std::nullopt, {}); }

    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> queueMessageWithName(std::optional<std::string> name,
                                                                               dmf::Value object)
    {
        return initWithName(std::move(name), std::move(object));
    }
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> queueMessageWithName(std::optional<std::string> name)
    {
        return initWithName(std::move(name));
    }
    [[nodiscard]] static std::shared_ptr<ADMQueueMessage> queueMessageWithObject(dmf::Value object)
    {
        return initWithObject(std::move(object));
    }

    [[nodiscard]] const std::optional<std::string>& name() const noexcept { return name_; }
    [[nodiscard]] const dmf::Value& object() const noexcept { return object_; }

private:
    ADMQueueMessage(std::optional<std::string> name, dmf::Value object);

    const std::optional<std::string> name_;
    const dmf::Value object_;
};
