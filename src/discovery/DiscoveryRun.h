#pragma once

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/IDMServiceDiscovery.h>
#include <dmf/platform/Class.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "discovery/FoundServices.h"

namespace dmf::internal {

/// What a synchronous run collects. Thread-safe.
class Gathering final {
public:
    void add(const std::shared_ptr<ADMServiceInfo>& service);
    void remove(ADMServiceInfo& service);
    /// Begins to count the idle time.
    void begin();
    /// Seconds since the last find, or since the begin.
    [[nodiscard]] double idleTime() const;
    [[nodiscard]] std::vector<std::shared_ptr<ADMServiceInfo>> all() const;

private:
    mutable std::mutex lock_;
    FoundServices services_;         // guarded by lock_
    double lastServiceComeDate_ = 0; // guarded by lock_; on the steady clock
};

/// One run of a discovery, from its start to its stop: the back ends that it works with, and the thread that creates
/// and starts them. The thread holds the run, not the discovery, so a discovery can go while a back end is still
/// starting; what starts too late is stopped by the thread. Back ends are stopped on a thread as well, so that one that
/// hangs in its stop does not take the caller with it. Thread-safe.
class DiscoveryRun final : public std::enable_shared_from_this<DiscoveryRun> {
public:
    struct Plan {
        std::vector<std::string> connectionTypes;
        std::vector<std::string> channelNames;
        Dictionary connectionParameters; ///< connection type to the parameters to resolve
        Dictionary parameters;           ///< for each back end
    };
    using Service = std::shared_ptr<ADMServiceInfo>;
    /// What the back ends report, on the discovery thread; tells whether it was taken.
    using Report = std::function<bool(const std::shared_ptr<DiscoveryRun>& run, const Service& service)>;

    /// `gathering` is null but for a synchronous run.
    DiscoveryRun(Plan plan, Report found, Report lost, std::shared_ptr<Gathering> gathering);

    /// Starts the thread; when that fails, every source has failed.
    void begin();
    /// Waits until the back ends have been started, half a minute at most, or until somebody asks for the end.
    void waitUntilCreated();
    /// Asks for the end: reports are refused, and the creating thread stops at its next step.
    void beginEnding();
    /// Asks for the end, waits until the back ends have been started, and stops them. Takes some seconds at most; what
    /// hangs for longer is left behind, and stopped when it comes back.
    void end();
    /// The same without waiting for those that are still starting.
    void abandon();
    /// Whether the end has been asked for: nothing is to be reported then.
    [[nodiscard]] bool isEnding() const noexcept { return isEnding_; }
    [[nodiscard]] const std::shared_ptr<Gathering>& gathering() const noexcept { return gathering_; }

    [[nodiscard]] std::vector<ADMDiscoverySource> sources() const;

private:
    struct Source {
        ADMDiscoverySource told;
        std::shared_ptr<IDMServiceDiscovery> discovery;
        std::shared_ptr<IDMServiceDiscoveryDelegate> reports; // the back end holds it weakly
    };

    void create();
    void start(std::size_t index, const dmf::Class& implementor);
    [[nodiscard]] std::shared_ptr<IDMServiceDiscoveryDelegate> reportsOf(std::size_t index);
    void setState(std::size_t index, ADMDiscoverySource::State state, Dictionary error = {});
    void finishCreation();
    void stopSources();
    void stopSourcesElsewhere();
    [[nodiscard]] bool mustNotWait() const;

    const Plan plan_;
    const Report found_;
    const Report lost_;
    const std::shared_ptr<Gathering> gathering_;
    std::atomic<bool> isEnding_{false};
    std::atomic<std::thread::id> creator_{};

    std::mutex stopLock_; // one stops at a time; before lock_
    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::int32_t sessionsState_;  // guarded by lock_; kDMDiscoverySessions...
    std::vector<Source> sources_; // guarded by lock_; one for each type and name, its place never changes
};

} // namespace dmf::internal
