#pragma once

#include <dmf/platform/Class.h>

#include <utility>

#include "foundation/logging/Guarded.h"

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
    } catch (...) {
        logCaught("PlugIns", "while an object of the class '" + implementor->name() + "' was made");
    }
    return nullptr;
}

} // namespace dmf::internal
