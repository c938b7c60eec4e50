#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include <dmf/ADMObjectCache.h>

namespace dmf::internal {

struct Host;

/// The configured level of one machine; see ADMLogger::environmentLogLevel. Thread-safe.
///
///     unknown ──a word is read──► young ──five seconds old──► unknown; a file without a word leaves it unknown
class ConfiguredLevel {
public:
    explicit ConfiguredLevel(const Host& host) : host_(host) {}

    /// The level word, or nothing.
    [[nodiscard]] std::optional<std::string> word();
    /// Its rank; ADMLogger::kUnknownLevel when there is none. Answers exactly as `word` does, in a few nanoseconds and
    /// without waiting for other threads while the word is young.
    [[nodiscard]] std::int32_t rank();

private:
    /// A rank together with the microsecond at which its word was stored, in one number that is read and written at
    /// once; 0 is none. It stands in front of the cache for the many messages that are filtered out: the cache takes a
    /// lock and hands out a copy.
    class Snapshot {
    public:
        void store(std::int64_t microseconds, std::int32_t rank) noexcept;
        /// The rank, while it is certain that the cache still holds its word young; the cache decides otherwise.
        [[nodiscard]] std::optional<std::int32_t> rankAt(std::int64_t microseconds) const noexcept;

    private:
        std::atomic<std::uint64_t> packed_{0};
    };

    const Host& host_;
    ADMObjectCache cache_;
    Snapshot snapshot_;
    std::mutex lock_; // keeps cache and snapshot at the same word
};

} // namespace dmf::internal
