#include "ReasonLog.h"

#include <dmf/ADMLogger.h>
#include <dmf/ADMLoggerPool.h>

#include <span>
#include <string_view>
#include <utility>

namespace dmf::tool {

class ReasonLog::Logger final : public ADMLogger {
public:
    explicit Logger(std::shared_ptr<ADMLogger> next) : next_(std::move(next)) {}

    void printWithLevel(std::string_view level, std::string_view format,
                        std::span<const dmf::FormatArgument> arguments) override
    {
        last = dmf::formatArguments(format, arguments);
        if (next_)
            next_->printWithLevel(level, format, arguments);
    }

    std::string last;

private:
    const std::shared_ptr<ADMLogger> next_;
};

namespace {

std::shared_ptr<ADMLogger> currentLogger()
{
    auto logger = ADMLoggerPool::lastLogger();
    return logger ? logger : ADMLogger::defaultLogger();
}

} // namespace

ReasonLog::ReasonLog() : logger_(std::make_shared<Logger>(currentLogger()))
{
    logger_->startLogging();
}

ReasonLog::~ReasonLog()
{
    logger_->endLogging();
}

std::string ReasonLog::reason() const
{
    std::string text = logger_->last;
    // The area is one word.
    if (const auto colon = text.find(": "); colon != std::string::npos && text.find(' ') > colon)
        text.erase(0, colon + 2);
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return text;
}

} // namespace dmf::tool
