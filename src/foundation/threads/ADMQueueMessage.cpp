#include <dmf/ADMQueueMessage.h>

ADMQueueMessage::ADMQueueMessage(std::optional<std::string> name, dmf::Value object)
    : name_(std::move(name)), object_(std::move(object))
{
}

std::shared_ptr<ADMQueueMessage> ADMQueueMessage::initWithName(std::optional<std::string> name, dmf::Value object)
{
    struct Made : ADMQueueMessage {
        Made(std::optional<std::string> n, dmf::Value o) : ADMQueueMessage(std::move(n), std::move(o)) {}
    };
    if (!name && object.isNull())
        return nullptr;
    return std::make_shared<Made>(std::move(name), std::move(object));
}
