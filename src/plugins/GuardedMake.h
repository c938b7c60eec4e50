#pragma once

#include <dmf/DMLog.h>
#include <dmf/platform/Class.h>

#include <exception>
#include <utility>

namespace dmf::internal {

/// `implementor->make<Interface>(arguments...)` for classes that plug-ins supply: what their code throws is logged and
/// counts as a refusal. Empty for a null class.
template <class Interface, class... Arguments>
[[nodiscard]] auto guardedMake(const std::shared_ptr<const Class>& implementor, Arguments&&... arguments)
    -> decltype(implementor->make<Interface>(std::forward<Arguments>(arguments)...))
{
    if (!implementor)
        return nullptr;
    try {
        return implementor->make<Interface>(std::forward<Arguments>(arguments)...);
    } catch (const std::exception& error) {
        DMFLog("errors", "PlugIns: exception '%@' while an object of the class '%@' was made", error,
               implementor->name());
    } catch (...) {
        DMFLog("errors", "PlugIns: unknown exception while an object of the class '%@' was made", implementor->name());
    }
    return nullptr;
}

} // namespace dmf::internal
