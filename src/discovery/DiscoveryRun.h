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

namespace dmf::internal {

/// One run of a discovery, from its start to its stop: the back ends that it works with, and the thread that creates
/// and starts them. The thread holds the run, not the discovery, so a discovery can go while a back end is still
/// starting; what starts too late is stopped by the thread. Thread-safe.
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

    DiscoveryRun(Plan plan, Report found, Report lost);

    /// Starts the thread; when that fails, every source has failed.
    void begin();
    /// Waits, some seconds at most, until the back ends have been started.
    void waitUntilCreated();
    /// Asks for the end: reports are refused, and the creating thread stops at its next step.
    void beginEnding() noexcept { isEnding_ = true; }
    /// Lets the creating thread stop at its next step, waits for it as above, and stops the back ends.
    void end();
    /// The same without waiting for the thread, which stops what it has started by itself.
    void abandon();
    /// Whether the end has been asked for: nothing is to be reported then.
    [[nodiscard]] bool isEnding() const noexcept { return isEnding_; }

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
    [[nodiscard]] bool isCreated() const;
    void stopSources();

    const Plan plan_;
    const Report found_;
    const Report lost_;
    std::atomic<bool> isEnding_{false};
    std::atomic<std::thread::id> creator_{};

    mutable std::mutex lock_;
    std::condition_variable created_;
    std::int32_t sessionsState_;  // guarded by lock_; kDMDiscoverySessions...
    std::vector<Source> sources_; // guarded by lock_; one for each type and name, its place never changes
};

} // namespace dmf::internal
