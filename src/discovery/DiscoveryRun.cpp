#include "discovery/DiscoveryRun.h"

#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Format.h>

#include <chrono>
#include <exception>
#include <utility>

#include "platform/Thread.h"

namespace dmf::internal {

using State = ADMDiscoverySource::State;

namespace {
/// Plug-ins are loaded and back ends started in well under a second; one that hangs must not take its client with it.
constexpr std::chrono::seconds kCreationLimit{5};

Dictionary failure(std::string_view description)
{
    return {{std::string(kDMErrorDescription), description}, {std::string(kDMErrorCode), std::int64_t{-1}}};
}
} // namespace

DiscoveryRun::DiscoveryRun(Plan plan, Report found, Report lost)
    : plan_(std::move(plan)), found_(std::move(found)), lost_(std::move(lost)),
      sessionsState_(kDMDiscoverySessionsNotStarted)
{
    for (const auto& type : plan_.connectionTypes) {
        for (const auto& name : plan_.channelNames) {
            Source& source = sources_.emplace_back();
            source.told.connectionType = type;
            source.told.channelName = name;
        }
    }
}

void DiscoveryRun::begin()
{
    const auto status = startThread("dmf-discover", ThreadForm::detached, [run = shared_from_this()] {
        run->creator_ = std::this_thread::get_id();
        run->create();
        run->creator_ = std::thread::id();
        run->finishCreation();
    });
    if (status == 0)
        return;
    DMFLog("errors", "Discovery: cannot start a thread to create the sessions (error %d)", status);
    for (std::size_t index = 0; index < sources_.size(); ++index)
        setState(index, State::failed, failure("The thread that starts the sessions cannot be started."));
    finishCreation();
}

void DiscoveryRun::create()
{
    auto* const manager = ADMPlugInManager::sharedManager().get();
    std::size_t index = 0;
    for (const auto& type : plan_.connectionTypes) {
        if (isEnding_)
            return;
        const auto implementor = manager->implementorForProtocol(IDMServiceDiscovery::protocol(),
                                                                 {{std::string(kDMServiceConnectionType), type}});
        for (std::size_t left = plan_.channelNames.size(); left > 0; --left, ++index) {
            if (isEnding_)
                return;
            if (implementor)
                start(index, *implementor);
            else
                setState(index, State::missing);
        }
    }
}

void DiscoveryRun::start(std::size_t index, const dmf::Class& implementor)
{
    const std::string& type = sources_[index].told.connectionType; // these two never change
    const std::string& name = sources_[index].told.channelName;
    try {
        const auto discovery = implementor.make<IDMServiceDiscovery>(name, type, plan_.parameters);
        if (!discovery)
            return setState(index, State::failed, failure("The service discovery cannot be created."));
        if (const auto* const parameters = plan_.connectionParameters[type].asDictionary())
            discovery->setParametersToResolve(*parameters);
        const auto reports = reportsOf(index);
        {
            std::lock_guard guard(lock_);
            sources_[index].discovery = discovery;
            sources_[index].reports = reports;
        }
        discovery->setDelegate(reports);
        Dictionary error;
        if (!discovery->startServiceDiscovery(&error)) {
            {
                std::lock_guard guard(lock_);
                sources_[index].discovery = nullptr;
                sources_[index].reports = nullptr;
            }
            return setState(index, State::failed, error.empty() ? failure("The session did not start.") : error);
        }
    } catch (const std::exception& exception) {
        DMFLog("errors", "Discovery: exception %@ while the session for '%@' connection, service '%@' was started.",
               exception, type, name);
        std::shared_ptr<IDMServiceDiscovery> dropped;
        {
            std::lock_guard guard(lock_);
            dropped.swap(sources_[index].discovery);
            sources_[index].reports = nullptr;
        }
        return setState(index, State::failed, failure(exception.what()));
    }
    DMFLog("debug", "Discovery: started the discovery session for '%@' connection, service '%@'", type, name);
    setState(index, State::running);
}

std::shared_ptr<IDMServiceDiscoveryDelegate> DiscoveryRun::reportsOf(std::size_t index)
{
    const auto handOn = [weak = weak_from_this(), index](const Report DiscoveryRun::*report, bool isFind,
                                                         const Service& service) {
        const auto run = weak.lock();
        if (!run || run->isEnding_ || !service || !(run.get()->*report)(run, service) || !isFind)
            return;
        std::lock_guard guard(run->lock_);
        ++run->sources_[index].told.finds;
    };
    auto reports = std::make_shared<IDMServiceDiscoveryDelegate>();
    reports->serviceDiscoveryDidFindService = [handOn](IDMServiceDiscovery&, const Service& service) {
        handOn(&DiscoveryRun::found_, true, service);
    };
    reports->serviceDiscoveryDidDisappearService = [handOn](IDMServiceDiscovery&, const Service& service) {
        handOn(&DiscoveryRun::lost_, false, service);
    };
    return reports;
}

void DiscoveryRun::setState(std::size_t index, State state, Dictionary error)
{
    std::lock_guard guard(lock_);
    sources_[index].told.state = state;
    sources_[index].told.error = std::move(error);
}

void DiscoveryRun::finishCreation()
{
    {
        std::lock_guard guard(lock_);
        sessionsState_ = kDMDiscoverySessionsAreStarted;
        created_.notify_all();
    }
    // Nobody waits any more for what comes this late.
    if (isEnding_)
        stopSources();
}

bool DiscoveryRun::isCreated() const
{
    std::lock_guard guard(lock_);
    return sessionsState_ == kDMDiscoverySessionsAreStarted;
}

void DiscoveryRun::waitUntilCreated()
{
    if (creator_.load() == std::this_thread::get_id())
        return; // a client that hears of the very first find on the creating thread; nobody can wait for himself
    std::unique_lock guard(lock_);
    created_.wait_for(guard, kCreationLimit, [this] { return sessionsState_ == kDMDiscoverySessionsAreStarted; });
}

void DiscoveryRun::end()
{
    isEnding_ = true;
    waitUntilCreated();
    if (isCreated())
        stopSources();
}

void DiscoveryRun::abandon()
{
    isEnding_ = true;
    if (isCreated())
        stopSources();
}

void DiscoveryRun::stopSources()
{
    // What a back end suffered from last stays on record.
    auto told = sources();
    std::vector<std::pair<std::shared_ptr<IDMServiceDiscovery>, std::shared_ptr<IDMServiceDiscoveryDelegate>>> running;
    {
        std::lock_guard guard(lock_);
        for (std::size_t index = 0; index < sources_.size(); ++index) {
            Source& source = sources_[index];
            source.told.error = std::move(told[index].error);
            if (source.told.state == State::running || source.told.state == State::starting)
                source.told.state = State::stopped;
            if (source.discovery)
                running.emplace_back(std::move(source.discovery), std::move(source.reports));
        }
    }
    for (const auto& [discovery, reports] : running) {
        try {
            discovery->stop();
        } catch (const std::exception& exception) {
            DMFLog("errors", "Discovery: exception %@ while a session was stopped.", exception);
        }
    }
}

std::vector<ADMDiscoverySource> DiscoveryRun::sources() const
{
    std::vector<std::pair<ADMDiscoverySource, std::shared_ptr<IDMServiceDiscovery>>> found;
    {
        std::lock_guard guard(lock_);
        for (const Source& source : sources_)
            found.emplace_back(source.told, source.discovery);
    }
    std::vector<ADMDiscoverySource> told;
    for (auto& [source, discovery] : found) {
        if (discovery && source.state == State::running)
            source.error = discovery->lastError();
        told.push_back(std::move(source));
    }
    return told;
}

} // namespace dmf::internal
