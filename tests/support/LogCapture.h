#pragma once

#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMLogger.h>

#include "support/HostFixture.h"

/// Collects what the library logs on the calling thread, at every level but "debug2".
class LogCapture {
public:
    explicit LogCapture(const HostFixture& host) : host_(host), logger_(make()) { logger_->startLogging(); }
    ~LogCapture() { logger_->endLogging(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const { return host_.readFile(kFile); }
    /// The lines so far without their times: "D  message", "W  message", "E  message".
    std::vector<std::string> lines() const
    {
        std::vector<std::string> result;
        const std::string text = this->text();
        for (std::size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            std::string line = text.substr(begin, end - begin);
            const auto open = line.find('[');
            const auto close = line.find("] ", open);
            if (open != std::string::npos && close != std::string::npos)
                line.erase(open, close + 2 - open);
            result.push_back(std::move(line));
        }
        return result;
    }

private:
    static constexpr const char* kFile = "/captured.log";
    std::shared_ptr<ADMLogger> make() const { return ADMLogger::initWithLogLevel("debug", host_.path(kFile).string()); }

    const HostFixture& host_;
    const std::shared_ptr<ADMLogger> logger_;
};
