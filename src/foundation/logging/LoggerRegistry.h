#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <dmf/ADMLoggerImp.h>

namespace dmf::internal {

/// What all loggers of the process share.
struct LoggerRegistry {
    struct Entry {
        const ADMLoggerImp* logger = nullptr;
        std::weak_ptr<ADMLoggerImp> reference;
    };
    std::recursive_mutex lock;
    std::map<std::string, Entry> openFiles; // by path; guarded by lock

    /// The default logger; valid as long as its host is in force. Thread-safe.
    [[nodiscard]] ADMLoggerImp& defaultLogger();
    [[nodiscard]] static LoggerRegistry& shared();

private:
    std::shared_ptr<ADMLoggerImp> default_; // guarded by lock
    std::atomic<ADMLoggerImp*> current_{nullptr};
    std::atomic<std::uint64_t> generation_{0}; // of the host that the default logger was made for
};

} // namespace dmf::internal
