#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include <dmf/ADMLoggerImp.h>

#include "foundation/logging/LogLevel.h"
#include "platform/host/Host.h"

namespace dmf::internal {

/// What logging keeps for one machine, for as long as that lives: the configured level and the default logger, which
/// writes to that machine's file. Thread-safe.
class HostLogging final : public Host::Belongings {
public:
    /// That of the host in force; made at its first use.
    [[nodiscard]] static HostLogging& current();

    [[nodiscard]] ConfiguredLevel& level() noexcept { return level_; }
    /// Made at its first use.
    [[nodiscard]] ADMLoggerImp& defaultLogger();

private:
    explicit HostLogging(const Host& host) : level_(host) {}

    ConfiguredLevel level_;
    std::mutex lock_;
    std::shared_ptr<ADMLoggerImp> made_;          // guarded by lock_
    std::atomic<ADMLoggerImp*> default_{nullptr}; // made_, for those who read it without the lock
};

} // namespace dmf::internal
