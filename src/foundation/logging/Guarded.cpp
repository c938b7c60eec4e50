#include "foundation/logging/Guarded.h"

#include <dmf/DMLog.h>

#include <exception>

namespace dmf::internal {

std::string caughtText() noexcept
{
    const auto copied = [](const char* text) noexcept -> std::string {
        try {
            return text;
        } catch (...) { // no memory
            return {};
        }
    };
    try {
        throw;
    } catch (const std::exception& exception) {
        return copied(exception.what());
    } catch (...) {
        return copied("unknown");
    }
}

void logCaught(std::string_view area, std::string_view where) noexcept
{
    const std::string text = caughtText();
    try {
        DMFLog("errors", "%@: exception '%@' %@", area, text, where);
    } catch (...) { // nobody is left to tell
        return;
    }
}

} // namespace dmf::internal
