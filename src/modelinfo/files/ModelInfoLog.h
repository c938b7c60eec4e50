#pragma once

#include <string_view>

#include <dmf/DMLog.h>

namespace dmf::internal {

/// A line of the log, only while logging is enabled: nothing of it goes to the system's log otherwise.
template <class... Arguments>
void logModelInfo(std::string_view level, std::string_view format, const Arguments&... arguments)
{
    if (DMIsLoggingEnabled())
        DMFLog(level, format, arguments...);
}

} // namespace dmf::internal
