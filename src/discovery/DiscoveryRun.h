#pragma once

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/platform/Value.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "discovery/DiscoverySource.h"

namespace dmf::internal {

/// One start of a discovery: its sources, and the thread that starts them one after the other. The thread shares the
/// run, so a discovery can go while a back end is still starting. Its state is that of its sources and that thread; it
/// is begun once, and may be ended any number of times. Thread-safe.
class DiscoveryRun final : public std::enable_shared_from_this<DiscoveryRun> {
public:
    struct Plan {
        std::vector<std::string> connectionTypes;
        std::vector<std::string> channelNames;
        Dictionary connectionParameters; ///< connection type to the parameters to resolve
        Dictionary parameters;           ///< for each back end
    };

    DiscoveryRun(Plan plan, const DiscoverySource::Report& report);

    /// Starts the thread; when that fails, every source has failed.
    void begin();
    /// Waits until the sources have been started or stopped, 3 seconds at most: one that takes longer may still come.
    void waitUntilStarted() const;
    /// Stops all sources, those that run at once and those that are starting as soon as they have, and waits for it, 2
    /// seconds at most and not at all where back ends may need the calling thread. What hangs is left behind.
    void end();

    /// In the order in which they are started.
    [[nodiscard]] std::vector<ADMDiscoverySource> told() const;

private:
    void startSources();
    void setStarting(bool isStarting);

    const Plan plan_;
    std::vector<std::shared_ptr<DiscoverySource>> sources_; // one for each type and name; never changes

    std::mutex lock_;
    std::condition_variable changed_;
    bool isStarting_ = false; // guarded by lock_: the thread that starts the sources is at it
};

} // namespace dmf::internal
