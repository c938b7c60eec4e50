#include <dmf/ADMLogger.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dmf/ADMLoggerImp.h>
#include <dmf/ADMLoggerPool.h>
#include <dmf/platform/Error.h>

#include "foundation/logging/LogLevel.h"
#include "foundation/logging/LogLevelWords.h"
#include "foundation/logging/LoggerRegistry.h"

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
    return dmf::internal::LoggerRegistry::shared().defaultLogger().shared_from_this();
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
    return dmf::internal::configuredLevel();
}

std::shared_ptr<dmf::FileHandle> ADMLogger::createLogFileIfNeeded(const std::string& path)
{
    // Looked at before it is opened, since opening a device can already do something; and again once it is open, since
    // it may have been exchanged in between. In a folder that others may write to, a link planted under the log's name
    // would send the lines into a file of their choice; a second hard link does the same.
    const auto isPlainFile = [](const struct stat& status) { return S_ISREG(status.st_mode) && status.st_nlink == 1; };
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && !isPlainFile(status))
        return nullptr;
    const int descriptor =
        ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
    if (descriptor < 0)
        return nullptr;
    auto handle = std::make_shared<dmf::FileHandle>(descriptor);
    if (::fstat(descriptor, &status) != 0 || !isPlainFile(status) || ::lseek(descriptor, 0, SEEK_END) < 0)
        return nullptr;
    return handle;
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
