#include "foundation/logging/LogLevel.h"

#include <dmf/ADMLogger.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include "platform/files/Files.h"
#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

constexpr double kMaximumAge = 5.0;
constexpr std::size_t kMaximumFileSize = 65536;

constexpr int kCodeBits = 3;
constexpr std::int32_t kUnknownCode = 7;
constexpr std::int64_t kCertainAge = 4'900'000; // leaves room for what the rough clock is behind

std::string readConfiguredLevel(const Host& host)
{
    const auto content = readRegularFile(host.path(kDMLogConfigPath), kMaximumFileSize, Links::follow);
    if (!content)
        return {};
    const std::string_view text(reinterpret_cast<const char*>(content->data()), content->size());
    return isValidUtf8(text) ? com_ql_dmf_trimCharactersInSet(text, CharacterSet::whitespaceAndNewlines())
                             : std::string();
}

} // namespace

void ConfiguredLevel::Snapshot::store(std::int64_t microseconds, std::int32_t rank) noexcept
{
    const auto code = static_cast<std::uint64_t>(rank == ADMLogger::kUnknownLevel ? kUnknownCode : rank);
    packed_.store(static_cast<std::uint64_t>(microseconds) << kCodeBits | code, std::memory_order_release);
}

std::optional<std::int32_t> ConfiguredLevel::Snapshot::rankAt(std::int64_t microseconds) const noexcept
{
    const std::uint64_t packed = packed_.load(std::memory_order_acquire);
    const std::int64_t age = microseconds - static_cast<std::int64_t>(packed >> kCodeBits);
    if (packed == 0 || age < 0 || age > kCertainAge)
        return std::nullopt;
    const auto code = static_cast<std::int32_t>(packed & kUnknownCode);
    return code == kUnknownCode ? ADMLogger::kUnknownLevel : code;
}

std::optional<std::string> ConfiguredLevel::word()
{
    if (auto cached = cache_.cachedObjectForKey(kDMLogLevelEnvironment, kMaximumAge).string())
        return cached;
    std::string word = readConfiguredLevel(host_);
    if (word.empty())
        return std::nullopt; // not cached: a file that appears counts at once
    std::lock_guard guard(lock_);
    // The snapshot is dated first, so that it never outlives the entry that it stands for.
    const std::int64_t storedAt = host_.roughNow();
    cache_.cacheObject(word, kDMLogLevelEnvironment);
    snapshot_.store(storedAt, ADMLogger::levelValueFromString(word));
    return word;
}

std::int32_t ConfiguredLevel::rank()
{
    if (const auto rank = snapshot_.rankAt(host_.roughNow()))
        return *rank;
    const auto configured = word();
    return configured ? ADMLogger::levelValueFromString(*configured) : ADMLogger::kUnknownLevel;
}

} // namespace dmf::internal
