#include <dmf/ADMLoggerImp.h>

#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <new>

#include "foundation/logging/HostLogging.h"
#include "foundation/logging/LogFile.h"
#include "foundation/logging/LogLevelWords.h"
#include "foundation/logging/LogText.h"
#include "foundation/logging/LogTime.h"
#include "foundation/logging/LoggerRegistry.h"
#include "platform/host/Host.h"

using dmf::internal::Host;
using dmf::internal::HostLogging;
using dmf::internal::LogFile;
using dmf::internal::LoggerRegistry;

namespace {

constexpr std::string_view kMissingObject = "(null)";
constexpr std::size_t kOrdinaryLineLength = 1024;

std::string defaultLogFile()
{
    return Host::current().path("/var/log/qlio/DMF_" + Host::current().processName + ".log");
}

char* append(char* to, std::string_view text)
{
    return std::copy(text.begin(), text.end(), to);
}

/// Writes "prefix [time] text\n" to `to`, which has room for `lineLength` of the two.
void buildLine(char* to, std::string_view prefix, std::string_view text)
{
    to = append(append(to, prefix), " [");
    dmf::internal::writeLogTime(to);
    to = append(append(to + dmf::internal::kLogTimeLength, "] "), text);
    *to = '\n';
}

std::size_t lineLength(std::string_view prefix, std::string_view text)
{
    return prefix.size() + text.size() + dmf::internal::kLogTimeLength + 5;
}

} // namespace

struct ADMLoggerImp::Made {};

ADMLoggerImp::ADMLoggerImp(const Made&, std::optional<std::string> level, std::shared_ptr<LogFile> file,
                           std::string path)
    : level_(std::move(level)), levelRank_(level_ ? levelValueFromString(*level_) : kUnknownLevel),
      file_(std::move(file)), path_(std::move(path))
{
}

ADMLoggerImp::~ADMLoggerImp()
{
    LoggerRegistry& registry = LoggerRegistry::shared();
    std::lock_guard guard(registry.lock);
    file_.reset(); // under the lock: the next logger of the path finds either this file or none
    const auto entry = registry.files.find(path_);
    if (entry != registry.files.end() && entry->second.file.expired())
        registry.files.erase(entry);
}

std::shared_ptr<ADMLoggerImp> ADMLoggerImp::init()
{
    return initWithLogLevel(std::nullopt, std::nullopt);
}

std::shared_ptr<ADMLoggerImp> ADMLoggerImp::initWithLogLevel(std::optional<std::string> level)
{
    return initWithLogLevel(std::move(level), std::nullopt);
}

std::shared_ptr<ADMLoggerImp> ADMLoggerImp::initWithLogLevel(std::optional<std::string> level,
                                                             std::optional<std::string> logFile)
{
    LoggerRegistry& registry = LoggerRegistry::shared();
    std::lock_guard guard(registry.lock);
    std::string path = logFile ? *std::move(logFile) : defaultLogFile();
    LoggerRegistry::Entry& entry = registry.files[path];
    auto file = entry.file.lock();
    if (auto logger = entry.logger.lock(); logger && file->isReady())
        return logger;
    if (!file)
        file = std::make_shared<LogFile>(path);
    auto logger = std::make_shared<ADMLoggerImp>(Made{}, std::move(level), file, std::move(path));
    entry = {file, logger};
    return logger;
}

std::shared_ptr<ADMLoggerImp> ADMLoggerImp::initWithLogLevelFileHandle(std::optional<std::string> level,
                                                                       std::shared_ptr<dmf::FileHandle> fileHandle)
{
    if (!fileHandle)
        return nullptr;
    return std::make_shared<ADMLoggerImp>(Made{}, std::move(level), std::make_shared<LogFile>(std::move(fileHandle)),
                                          std::string());
}

bool ADMLoggerImp::letsThrough(std::int32_t rank) const
{
    // A level of its own that is unknown lets everything through, a configured one that is unknown nothing.
    if (level_)
        return levelRank_ == kUnknownLevel || levelRank_ >= rank;
    const std::int32_t configured = HostLogging::current().level().rank();
    return configured != kUnknownLevel && configured >= rank;
}

void ADMLoggerImp::printWithLevel(std::string_view level, std::string_view format,
                                  std::span<const dmf::FormatArgument> arguments)
{
    const auto* word = dmf::internal::logLevelWord(level);
    if (!letsThrough(word ? word->rank : kUnknownLevel) || !file_->isReady())
        return;
    const std::string_view prefix = word && !word->prefix.empty() ? word->prefix : kMissingObject;
    if (format.find('%') == std::string_view::npos)
        return writeMessage(prefix, format);
    std::string text;
    try {
        text = dmf::formatArguments(format, arguments);
    } catch (const std::exception&) {
        return; // an argument that cannot be described
    }
    writeMessage(prefix, text);
}

void ADMLoggerImp::writeMessage(std::string_view prefix, std::string_view text)
{
    if (dmf::internal::isPlainText(text))
        return writePlainMessage(prefix, text);
    if (!dmf::isValidUtf8(text))
        return;
    if (dmf::internal::holdsControls(text)) {
        try {
            return writePlainMessage(prefix, dmf::internal::withoutControls(text));
        } catch (const std::bad_alloc&) {
            return; // without memory the line is lost, not the program
        }
    }
    writePlainMessage(prefix, text);
}

/// One whose text is good for a line.
void ADMLoggerImp::writePlainMessage(std::string_view prefix, std::string_view text)
{
    const std::size_t length = lineLength(prefix, text);
    if (length <= kOrdinaryLineLength) {
        char line[kOrdinaryLineLength];
        buildLine(line, prefix, text);
        file_->write({line, length});
    } else {
        std::string line;
        try {
            line.resize(length);
        } catch (const std::bad_alloc&) {
            return; // without memory the line is lost, not the program
        }
        buildLine(line.data(), prefix, text);
        file_->write(line);
    }
}
