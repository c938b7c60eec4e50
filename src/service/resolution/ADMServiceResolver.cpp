#include <dmf/ADMServiceResolver.h>

#include <dmf/ADMGenericServiceResolver.h>

#include "plugins/GuardedMake.h"

ADMServiceResolver::SharedFactory& ADMServiceResolver::sharedFactory()
{
    static auto* const factory = new SharedFactory; // never destroyed: a library thread may still resolve
    return *factory;
}

ADMServiceResolver::SharedFactory::SharedFactory()
{
    addResolverClass(ADMGenericServiceResolver::resolverClass(), ADMGenericServiceResolver::connectionType());
}

void ADMServiceResolver::SharedFactory::addResolverClass(std::shared_ptr<const dmf::Class> resolverClass,
                                                         std::string_view connectionType)
{
    if (!resolverClass)
        return;
    std::lock_guard guard(lock_);
    classes_.insert_or_assign(std::string(connectionType), std::move(resolverClass));
}

std::shared_ptr<ADMServiceResolver> ADMServiceResolver::SharedFactory::newServiceResolverWithConnectionType(
    std::optional<std::string_view> connectionType) const
{
    if (!connectionType)
        return nullptr;
    auto resolverClass = ADMGenericServiceResolver::resolverClass();
    {
        std::lock_guard guard(lock_);
        if (const auto entry = classes_.find(*connectionType); entry != classes_.end())
            resolverClass = entry->second;
    }
    return dmf::internal::guardedMake<ADMServiceResolver>(resolverClass);
}
