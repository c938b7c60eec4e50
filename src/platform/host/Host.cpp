#include "platform/host/Host.h"

#include <sys/auxv.h>
#include <sys/file.h>
#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace dmf::internal {
namespace {

std::atomic<Host*> gInstalled{nullptr};
std::atomic<std::uint64_t> gGeneration{1};

Host& machine()
{
    static Host* const real = new Host; // never destroyed: library threads may outlive static objects
    return *real;
}

// What may be said by the user of a program that has more rights than he has. A new variable is not among them unless
// it says neither whom the library talks to nor what it reads, writes or loads.
constexpr std::string_view kHarmless[] = {"DMFConsoleLog", "LANG", "LANGUAGE", "LC_ALL", "LC_MESSAGES"};

double seconds(clockid_t clock, std::int64_t offset) noexcept
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9 +
           static_cast<double>(offset) * 1e-6;
}

} // namespace

Host::Host()
    : lockFile(&::flock), processName(program_invocation_short_name), hasRaisedRights(::getauxval(AT_SECURE) != 0),
      systemLog([](int priority, std::string_view line) {
          ::syslog(LOG_USER | priority, "%.*s", static_cast<int>(line.size()), line.data());
      })
{
}

Host::~Host()
{
    delete logging.load(std::memory_order_acquire);
}

double Host::now() const noexcept
{
    return seconds(CLOCK_REALTIME,
                   clockOffset.load(std::memory_order_relaxed) + dayClockOffset.load(std::memory_order_relaxed));
}

std::int64_t Host::roughNow() const noexcept
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_nsec / 1000 + clockOffset.load(std::memory_order_relaxed) +
           dayClockOffset.load(std::memory_order_relaxed);
}

double Host::steadyNow() const noexcept
{
    return seconds(CLOCK_MONOTONIC, clockOffset.load(std::memory_order_relaxed));
}

const std::string& Host::bootIdentity() const
{
    static const std::string* const identity = [] {
        auto* const text = new std::string;
        std::ifstream("/proc/sys/kernel/random/boot_id") >> *text;
        return text;
    }();
    return *identity;
}

std::string Host::path(std::string_view absolute) const
{
    return rootFolder + std::string(absolute);
}

std::optional<std::string> Host::environment(const std::string& name) const
{
    if (hasRaisedRights && std::ranges::find(kHarmless, name) == std::end(kHarmless))
        return std::nullopt;
    if (environmentOverride) {
        const auto entry = environmentOverride->find(name);
        return entry == environmentOverride->end() ? std::nullopt : std::optional(entry->second);
    }
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

Host& Host::current() noexcept
{
    Host* installed = gInstalled.load(std::memory_order_acquire);
    return installed ? *installed : machine();
}

Host* Host::install(Host* host) noexcept
{
    Host* const before = gInstalled.exchange(host, std::memory_order_acq_rel);
    gGeneration.fetch_add(1, std::memory_order_acq_rel);
    return before;
}

std::uint64_t Host::generation() noexcept
{
    return gGeneration.load(std::memory_order_acquire);
}

} // namespace dmf::internal
