#pragma once

#include <memory>

#include <dmf/ADMLogger.h>
#include <dmf/platform/Export.h>

/// The stack of loggers of the calling thread. It keeps its loggers alive and ends with the thread. Thread-safe.
class DMF_EXPORT ADMLoggerPool {
public:
    ADMLoggerPool() = delete;

    /// Puts the logger on top; it may stand in the stack more than once. Ignores an empty pointer.
    static void addLogger(std::shared_ptr<ADMLogger> logger);
    /// Takes off the first (lowest) entry that is this very logger, if there is one.
    static void removeLogger(const std::shared_ptr<ADMLogger>& logger);
    /// The logger on top, or empty.
    [[nodiscard]] static std::shared_ptr<ADMLogger> lastLogger();
};
