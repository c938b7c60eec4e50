#pragma once

#include <string_view>

#include "foundation/logging/EnabledLog.h"

namespace dmf::internal {

/// A line of the log, only while logging is enabled or the thread has a logger of its own: nothing of it goes to the
/// system's log otherwise.
template <class... Arguments>
void logModelInfo(std::string_view level, std::string_view format, const Arguments&... arguments)
{
    if constexpr (sizeof...(arguments) == 0) {
        logWhereEnabled(level, format, {});
    } else {
        const FormatArgument list[] = {FormatArgument(arguments)...};
        logWhereEnabled(level, format, list);
    }
}

} // namespace dmf::internal
