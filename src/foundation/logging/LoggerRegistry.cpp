#include "foundation/logging/LoggerRegistry.h"

namespace dmf::internal {

LoggerRegistry& LoggerRegistry::shared()
{
    static LoggerRegistry* const registry = new LoggerRegistry; // never destroyed: any thread may still log
    return *registry;
}

} // namespace dmf::internal
