#include <dmf/DMLog.h>

#include <sys/stat.h>
#include <syslog.h>

#include <dmf/ADMLoggerPool.h>
#include <dmf/DMKeys.h>

#include <exception>

#include "foundation/logging/LogLevel.h"
#include "foundation/logging/LogText.h"
#include "foundation/logging/LoggerRegistry.h"
#include "platform/host/Host.h"

using dmf::internal::Host;

namespace {

// Not filtered by any level: an administrator asks for it with the environment.
void copyToSystemLog(std::string_view level, std::string_view format, std::span<const dmf::FormatArgument> arguments)
{
    const bool isError = level == "errors";
    if (!isError && level != "warnings")
        return;
    const Host& host = Host::current();
    if (!host.environment("DMFConsoleLog") || !host.systemLog)
        return;
    try {
        host.systemLog(isError ? LOG_ERR : LOG_WARNING,
                       dmf::internal::withoutControls(dmf::formatArguments(format, arguments)));
    } catch (const std::exception&) {
        // An argument that cannot be described costs the line.
    }
}

} // namespace

void DMFLogv(std::string_view level, std::string_view format, std::span<const dmf::FormatArgument> arguments)
{
    if (const auto logger = ADMLoggerPool::lastLogger())
        logger->printWithLevel(level, format, arguments);
    else
        dmf::internal::LoggerRegistry::shared().defaultLogger().printWithLevel(level, format, arguments);
    copyToSystemLog(level, format, arguments);
}

bool DMIsLoggingEnabled()
{
    struct stat status {};
    return ::stat(Host::current().path(kDMLogConfigPath).c_str(), &status) == 0 &&
           dmf::internal::configuredLevel().has_value();
}
