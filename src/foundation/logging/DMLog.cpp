#include <dmf/DMLog.h>

#include <cxxabi.h>
#include <sys/stat.h>
#include <syslog.h>

#include <dmf/ADMLoggerPool.h>
#include <dmf/DMKeys.h>

#include "foundation/logging/AfterFork.h"
#include "foundation/logging/EnabledLog.h"
#include "foundation/logging/HostLogging.h"
#include "foundation/logging/LogText.h"
#include "platform/host/Host.h"

using dmf::internal::Host;
using dmf::internal::HostLogging;

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
    host.systemLog(isError ? LOG_ERR : LOG_WARNING,
                   dmf::internal::withoutControls(dmf::formatArguments(format, arguments)));
}

/// What a program's logger, file handle or description throws costs the line: nobody who logs expects more.
template <class Log>
void whateverIsThrown(Log log)
{
    try {
        log();
    } catch (const abi::__forced_unwind&) {
        throw; // the end of the thread that logs
    } catch (...) {
    }
}

} // namespace

void DMFLogv(std::string_view level, std::string_view format, std::span<const dmf::FormatArgument> arguments)
{
    if (!dmf::internal::mayLog())
        return;
    whateverIsThrown([&] {
        if (const auto logger = ADMLoggerPool::lastLogger())
            logger->printWithLevel(level, format, arguments);
        else
            HostLogging::current().defaultLogger().printWithLevel(level, format, arguments);
    });
    whateverIsThrown([&] { copyToSystemLog(level, format, arguments); });
}

void dmf::internal::logWhereEnabled(std::string_view level, std::string_view format,
                                    std::span<const dmf::FormatArgument> arguments)
{
    if (!dmf::internal::mayLog())
        return;
    if (DMIsLoggingEnabled())
        return DMFLogv(level, format, arguments);
    if (const auto logger = ADMLoggerPool::lastLogger())
        whateverIsThrown([&] { logger->printWithLevel(level, format, arguments); });
}

bool DMIsLoggingEnabled()
{
    if (!dmf::internal::mayLog())
        return false;
    struct stat status {};
    return ::stat(Host::current().path(kDMLogConfigPath).c_str(), &status) == 0 &&
           HostLogging::current().level().word().has_value();
}
