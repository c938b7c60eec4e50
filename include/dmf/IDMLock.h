#pragma once

#include <cstdint>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// A lock that one object hands to another. Each operation gives 0 for success, otherwise the system's error number.
/// Thread-safe.
class DMF_EXPORT IDMLock {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMLock();

    /// Waits, without a limit, until the lock is free, and takes it.
    virtual std::int32_t lock() = 0;
    virtual std::int32_t unlock() = 0;
    /// Never waits; EBUSY when somebody else holds the lock.
    [[nodiscard]] virtual std::int32_t trylock() = 0;
};
