#include "foundation/logging/LogLevel.h"

#include <dmf/ADMLogger.h>
#include <dmf/ADMObjectCache.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include <atomic>
#include <mutex>

#include "platform/files/Files.h"
#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

constexpr double kMaximumAge = 5.0;
constexpr std::size_t kMaximumFileSize = 65536;

/// A rank together with the microsecond at which its word was stored, in one number that is read and written at once;
/// 0 is none. It stands in front of the cache for the many messages that are filtered out: the cache takes a lock and
/// hands out a copy.
class RankSnapshot {
public:
    void store(std::int64_t microseconds, std::int32_t rank) noexcept
    {
        const auto code = static_cast<std::uint64_t>(rank == ADMLogger::kUnknownLevel ? kUnknownCode : rank);
        packed_.store(static_cast<std::uint64_t>(microseconds) << kCodeBits | code, std::memory_order_release);
    }
    void clear() noexcept { packed_.store(0, std::memory_order_release); }

    /// The rank, while it is certain that the cache still holds its word young; the cache decides in all other cases.
    [[nodiscard]] std::optional<std::int32_t> rankAt(std::int64_t microseconds) const noexcept
    {
        const std::uint64_t packed = packed_.load(std::memory_order_acquire);
        const std::int64_t age = microseconds - static_cast<std::int64_t>(packed >> kCodeBits);
        if (packed == 0 || age < 0 || age > kCertainAge)
            return std::nullopt;
        const auto code = static_cast<std::int32_t>(packed & kUnknownCode);
        return code == kUnknownCode ? ADMLogger::kUnknownLevel : code;
    }

private:
    static constexpr int kCodeBits = 3;
    static constexpr std::int32_t kUnknownCode = 7;
    static constexpr std::int64_t kCertainAge = 4'900'000; // leaves room for what the rough clock is behind
    std::atomic<std::uint64_t> packed_{0};
};

struct LevelState {
    ADMObjectCache cache;
    RankSnapshot snapshot;
    std::atomic<std::uint64_t> generation{0}; // of the host that the word was read from
    std::mutex lock;                          // keeps cache and snapshot at the same word
};

LevelState& state()
{
    static LevelState* const shared = new LevelState; // never destroyed: any thread may still log
    return *shared;
}

void forgetOtherHosts(LevelState& level)
{
    const std::uint64_t generation = Host::generation();
    if (level.generation.load(std::memory_order_acquire) == generation)
        return;
    std::lock_guard guard(level.lock);
    level.cache.removeAllObjects();
    level.snapshot.clear();
    level.generation.store(generation, std::memory_order_release);
}

std::string readConfiguredLevel()
{
    const auto content = readRegularFile(Host::current().path(kDMLogConfigPath), kMaximumFileSize, Links::follow);
    if (!content)
        return {};
    const std::string_view text(reinterpret_cast<const char*>(content->data()), content->size());
    return isValidUtf8(text) ? com_ql_dmf_trimCharactersInSet(text, CharacterSet::whitespaceAndNewlines())
                             : std::string();
}

} // namespace

std::optional<std::string> configuredLevel()
{
    LevelState& level = state();
    forgetOtherHosts(level);
    if (auto cached = level.cache.cachedObjectForKey(kDMLogLevelEnvironment, kMaximumAge).string())
        return cached;
    std::string word = readConfiguredLevel();
    if (word.empty())
        return std::nullopt; // not cached: a file that appears counts at once
    std::lock_guard guard(level.lock);
    // The snapshot is dated first, so that it never outlives the entry that it stands for.
    const std::int64_t storedAt = Host::current().roughNow();
    level.cache.cacheObject(word, kDMLogLevelEnvironment);
    level.snapshot.store(storedAt, ADMLogger::levelValueFromString(word));
    return word;
}

std::int32_t configuredLevelRank()
{
    const LevelState& level = state();
    if (level.generation.load(std::memory_order_acquire) == Host::generation()) {
        if (const auto rank = level.snapshot.rankAt(Host::current().roughNow()))
            return *rank;
    }
    const auto word = configuredLevel();
    return word ? ADMLogger::levelValueFromString(*word) : ADMLogger::kUnknownLevel;
}

} // namespace dmf::internal
