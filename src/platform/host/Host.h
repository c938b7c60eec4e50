#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf::internal {

/// Everything that the library takes from the machine, in one place, so that tests never touch the machine's own.
/// Programs get the real one; a test installs another before it starts and puts the real one back at its end.
/// Exported for the tests; its header is not installed.
struct DMF_EXPORT Host {
    /// What a layer above keeps for as long as its host lives.
    struct Belongings {
        virtual ~Belongings() = default;
    };

    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Put before every absolute path that the library uses by itself; empty on a real machine.
    std::string rootFolder;
    /// Added to both clocks, in microseconds.
    std::atomic<std::int64_t> clockOffset{0};
    /// Added to the clock of the day alone, in microseconds: as somebody does who sets the machine's clock.
    std::atomic<std::int64_t> dayClockOffset{0};
    /// Takes the advisory lock on an open file, as flock does. A test puts that of another file system here.
    int (*lockFile)(int descriptor, int operation);
    /// The system version in packed decimal digits, 0x1050 for 10.5.0.
    std::atomic<std::uint32_t> systemVersion{0x1068};
    std::string processName;
    /// Whether the process has more rights than the user who started it, who then is one of the others.
    bool hasRaisedRights;
    /// When set, replaces the process's environment.
    std::optional<std::map<std::string, std::string, std::less<>>> environmentOverride;
    /// When set, replaces the folder that holds the library's "dmf/Resources" and "dmf/PlugIns".
    std::optional<std::string> libraryFolder;
    /// Receives lines for the system's log; the priorities are those of syslog.
    std::function<void(int priority, std::string_view line)> systemLog;
    /// Logging's; put there once, and the host's from then on.
    std::atomic<Belongings*> logging{nullptr};

    /// Seconds since 1970.
    [[nodiscard]] double now() const noexcept;
    /// Microseconds since 1970 from a clock that is cheaper to read and may be behind `now` by up to 10 milliseconds.
    [[nodiscard]] std::int64_t roughNow() const noexcept;
    /// Seconds on a clock that only moves forward, from an arbitrary start.
    [[nodiscard]] double steadyNow() const noexcept;
    /// What tells this run of the machine from all others; empty where the machine does not say. The forward clock has
    /// one start in all processes of a boot.
    [[nodiscard]] const std::string& bootIdentity() const;
    [[nodiscard]] std::string path(std::string_view absolute) const;
    /// A variable of the environment. The one place where the library reads it: with raised rights only what says how
    /// something is told counts, its language for instance, and whatever says where something is counts as not set.
    /// docs/environment.md lists all variables.
    [[nodiscard]] std::optional<std::string> environment(const std::string& name) const;

    /// The host in force. Thread-safe; the reference stays good for the life of the process.
    [[nodiscard]] static Host& current() noexcept;
    /// Puts `host` in force and hands back the one that was; a null host stands for the real machine. The caller keeps
    /// both alive until every thread that could use them has ended.
    static Host* install(Host* host) noexcept;
    /// Goes up with every `install`, so that what was remembered of one host is not taken for another's. Thread-safe.
    [[nodiscard]] static std::uint64_t generation() noexcept;
};

} // namespace dmf::internal
