#pragma once

#include <span>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Format.h>

/// DMFLog with its arguments packed; the arguments are described only when the message is written.
DMF_EXPORT void DMFLogv(std::string_view level, std::string_view format,
                        std::span<const dmf::FormatArgument> arguments);

/// Reports what the program does: one line to the logger on top of the calling thread's stack (ADMLoggerPool), else to
/// the default logger, where its level lets the message through (ADMLogger). Levels are "nolog", "info", "warnings",
/// "errors", "debug" and "debug2"; formats are those of dmf::formatArguments.
///
/// When the environment holds "DMFConsoleLog", messages at "errors" and "warnings" also go to the system's log,
/// whatever level is configured. Thread-safe; never fails, and blocks no longer than one write to the file.
template <class... Arguments>
void DMFLog(std::string_view level, std::string_view format, const Arguments&... arguments)
{
    if constexpr (sizeof...(arguments) == 0) {
        DMFLogv(level, format, {});
    } else {
        const dmf::FormatArgument list[] = {dmf::FormatArgument(arguments)...};
        DMFLogv(level, format, list);
    }
}

/// Whether an administrator has configured a level, known or not; false while the configuration file does not exist.
/// Thread-safe.
[[nodiscard]] DMF_EXPORT bool DMIsLoggingEnabled();
