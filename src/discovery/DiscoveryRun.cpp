#include "discovery/DiscoveryRun.h"

#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include <utility>

#include "discovery/BackEndThread.h"
#include "foundation/logging/Guarded.h"

namespace dmf::internal {

namespace {
// Plug-ins are loaded and back ends started and stopped in well under a second; one that hangs must not take its client
// with it.
constexpr std::chrono::seconds kStartLimit{3};
constexpr std::chrono::seconds kEndLimit{2};

/// A bundle that throws as it is loaded is one that is not there.
std::shared_ptr<const Class> implementorFor(const std::string& connectionType)
{
    const Dictionary matching{{std::string(kDMServiceConnectionType), connectionType}};
    return guarded("Discovery", formatted("while the plug-in for '%@' connection was loaded", connectionType),
                   [&] {
                       return ADMPlugInManager::sharedManager()->implementorForProtocol(IDMServiceDiscovery::protocol(),
                                                                                        matching);
                   })
        .value_or(nullptr);
}
} // namespace

DiscoveryRun::DiscoveryRun(Plan plan, const DiscoverySource::Report& report) : plan_(std::move(plan))
{
    for (const auto& type : plan_.connectionTypes) {
        for (const auto& name : plan_.channelNames)
            sources_.push_back(std::make_shared<DiscoverySource>(type, name, report));
    }
}

void DiscoveryRun::begin()
{
    setStarting(true);
    const auto status = startBackEndThread([run = shared_from_this()] {
        run->startSources();
        run->setStarting(false);
    });
    if (status == 0)
        return;
    setStarting(false);
    DMFLog("errors", "Discovery: cannot start a thread to create the sessions (error %d)", status);
    for (const auto& source : sources_)
        source->fail("The thread that starts the sessions cannot be started.");
}

void DiscoveryRun::setStarting(bool isStarting)
{
    std::lock_guard guard(lock_);
    isStarting_ = isStarting;
    changed_.notify_all();
}

void DiscoveryRun::startSources()
{
    std::shared_ptr<const Class> implementor;
    const std::string* type = nullptr; // whose implementor that is
    for (const auto& source : sources_) {
        if (!source->isWaiting())
            continue; // stopped already; for its sake no plug-in is loaded
        if (!type || *type != source->connectionType()) {
            type = &source->connectionType();
            implementor = implementorFor(*type);
        }
        source->start(implementor, plan_.parameters, plan_.connectionParameters[*type].asDictionary());
    }
}

void DiscoveryRun::waitUntilStarted() const
{
    if (isBackEndThread())
        return;
    const auto deadline = DiscoverySource::Clock::now() + kStartLimit;
    for (const auto& source : sources_)
        source->waitUntilStarted(deadline);
}

void DiscoveryRun::end()
{
    for (const auto& source : sources_)
        source->stop();
    if (isBackEndThread())
        return;
    const auto deadline = DiscoverySource::Clock::now() + kEndLimit;
    for (const auto& source : sources_)
        source->waitUntilStopped(deadline);
    // It may be looking for a plug-in whose source is stopped by now.
    std::unique_lock guard(lock_);
    changed_.wait_until(guard, deadline, [this] { return !isStarting_; });
}

std::vector<ADMDiscoverySource> DiscoveryRun::told() const
{
    std::vector<ADMDiscoverySource> told;
    told.reserve(sources_.size());
    for (const auto& source : sources_)
        told.push_back(source->told());
    return told;
}

} // namespace dmf::internal
