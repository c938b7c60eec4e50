#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <dmf/ADMLoggerImp.h>

#include "foundation/logging/LogFile.h"

namespace dmf::internal {

/// The files that the loggers of this process write to, and the logger of each.
struct LoggerRegistry {
    struct Entry {
        std::weak_ptr<LogFile> file;
        std::weak_ptr<ADMLoggerImp> logger; // the one that was made last, while it lives
    };
    std::recursive_mutex lock;
    std::map<std::string, Entry> files; // by path; guarded by lock

    [[nodiscard]] static LoggerRegistry& shared();
};

} // namespace dmf::internal
