#include <dmf/ADMLogger.h>

#include <dmf/ADMLoggerImp.h>
#include <dmf/ADMLoggerPool.h>
#include <dmf/platform/Error.h>

#include "foundation/logging/HostLogging.h"
#include "foundation/logging/LogFile.h"
#include "foundation/logging/LogLevelWords.h"

using dmf::internal::logLevelWord;

ADMLogger::ADMLogger() = default;
ADMLogger::~ADMLogger() = default;

std::shared_ptr<ADMLogger> ADMLogger::init()
{
    return ADMLoggerImp::init();
}

std::shared_ptr<ADMLogger> ADMLogger::initWithLogLevel(std::optional<std::string> level)
{
    return ADMLoggerImp::initWithLogLevel(std::move(level));
}

std::shared_ptr<ADMLogger> ADMLogger::initWithLogLevel(std::optional<std::string> level,
                                                       std::optional<std::string> logFile)
{
    return ADMLoggerImp::initWithLogLevel(std::move(level), std::move(logFile));
}

std::shared_ptr<ADMLogger> ADMLogger::initWithLogLevelFileHandle(std::optional<std::string> level,
                                                                 std::shared_ptr<dmf::FileHandle> fileHandle)
{
    return ADMLoggerImp::initWithLogLevelFileHandle(std::move(level), std::move(fileHandle));
}

std::shared_ptr<ADMLogger> ADMLogger::defaultLogger()
{
    return dmf::internal::HostLogging::current().defaultLogger().shared_from_this();
}

std::int32_t ADMLogger::levelValueFromString(std::string_view level)
{
    const auto* known = logLevelWord(level);
    return known ? known->rank : kUnknownLevel;
}

std::optional<std::string> ADMLogger::infoPrefixFromString(std::string_view level)
{
    const auto* known = logLevelWord(level);
    return known && !known->prefix.empty() ? std::optional<std::string>(known->prefix) : std::nullopt;
}

std::optional<std::string> ADMLogger::environmentLogLevel()
{
    return dmf::internal::HostLogging::current().level().word();
}

std::shared_ptr<dmf::FileHandle> ADMLogger::createLogFileIfNeeded(const std::string& path, std::string* refusal)
{
    return dmf::internal::openLogFile(path, refusal);
}

std::string ADMLogger::reasonNotToLog(const std::string& path)
{
    return dmf::internal::reasonAgainstLogFile(path);
}

void ADMLogger::startLogging()
{
    ADMLoggerPool::addLogger(shared_from_this());
}

void ADMLogger::endLogging()
{
    ADMLoggerPool::removeLogger(shared_from_this());
}

void ADMLogger::printWithLevel(std::string_view, std::string_view, std::span<const dmf::FormatArgument>)
{
    throw dmf::UnrecognizedOperation("ADMLogger", "printWithLevel:format:arguments:");
}
