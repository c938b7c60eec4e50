#include <dmf/ADMObserverHolder.h>

std::shared_ptr<ADMObserverHolder> ADMObserverHolder::initWithObject(const std::shared_ptr<dmf::DynamicObject>& object,
                                                                     std::string_view operation)
{
    if (!object || operation.empty() || !object->respondsTo(operation))
        return nullptr;
    return std::make_shared<ADMObserverHolder>(Passkey(), object, operation);
}
