#include "discovery/DiscoveryRun.h"

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Thread.h"

namespace dmf::internal {

using State = ADMDiscoverySource::State;

namespace {
/// Plug-ins are loaded and back ends started and stopped in well under a second; one that hangs must not take its
/// client with it. Somebody who waits for finds waits longer for what starts slowly.
constexpr std::chrono::seconds kEndLimit{5};
constexpr std::chrono::seconds kCreationLimit{30};

/// A bundle that throws as it is loaded is one that is not there.
std::shared_ptr<const Class> implementorFor(const std::string& connectionType)
{
    try {
        return ADMPlugInManager::sharedManager()->implementorForProtocol(
            IDMServiceDiscovery::protocol(), {{std::string(kDMServiceConnectionType), connectionType}});
    } catch (const std::exception& exception) {
        DMFLog("errors", "Discovery: exception %@ while the plug-in for '%@' connection was loaded.", exception,
               connectionType);
        return nullptr;
    }
}

Dictionary troubleOf(const IDMServiceDiscovery& discovery)
{
    try {
        return discovery.lastError();
    } catch (const std::exception& exception) {
        DMFLog("errors", "Discovery: exception %@ while a session was asked for its trouble.", exception);
        return {};
    }
}

Dictionary failure(std::string_view description)
{
    return {{std::string(kDMErrorDescription), description}, {std::string(kDMErrorCode), std::int64_t{-1}}};
}
} // namespace

void Gathering::add(const std::shared_ptr<ADMServiceInfo>& service)
{
    std::lock_guard guard(lock_);
    services_.add(service);
    lastServiceComeDate_ = Host::current().steadyNow();
}

void Gathering::remove(ADMServiceInfo& service)
{
    std::lock_guard guard(lock_);
    services_.remove(service);
}

void Gathering::begin()
{
    std::lock_guard guard(lock_);
    lastServiceComeDate_ = Host::current().steadyNow();
}

double Gathering::idleTime() const
{
    std::lock_guard guard(lock_);
    return Host::current().steadyNow() - lastServiceComeDate_;
}

std::vector<std::shared_ptr<ADMServiceInfo>> Gathering::all() const
{
    std::lock_guard guard(lock_);
    return services_.all();
}

DiscoveryRun::DiscoveryRun(Plan plan, Report found, Report lost, std::shared_ptr<Gathering> gathering)
    : plan_(std::move(plan)), found_(std::move(found)), lost_(std::move(lost)), gathering_(std::move(gathering)),
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
    std::size_t index = 0;
    for (const auto& type : plan_.connectionTypes) {
        if (isEnding_)
            return;
        const auto implementor = implementorFor(type);
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
        changed_.notify_all();
    }
    // Whoever asked for the end may wait no more for what comes this late.
    if (isEnding_)
        stopSources();
}

/// Nobody can wait for himself: on the creating thread, and on the discovery thread, which back ends may need to stop.
bool DiscoveryRun::mustNotWait() const
{
    if (creator_.load() == std::this_thread::get_id())
        return true;
    const auto loop = ADMServiceDiscoveryBase::runloop();
    return loop && loop->isCurrent();
}

void DiscoveryRun::waitUntilCreated()
{
    if (mustNotWait())
        return;
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, kCreationLimit,
                      [this] { return isEnding_ || sessionsState_ == kDMDiscoverySessionsAreStarted; });
}

void DiscoveryRun::beginEnding()
{
    std::lock_guard guard(lock_);
    isEnding_ = true;
    changed_.notify_all();
}

void DiscoveryRun::end()
{
    beginEnding();
    if (!mustNotWait()) {
        std::unique_lock guard(lock_);
        changed_.wait_for(guard, kEndLimit, [this] { return sessionsState_ == kDMDiscoverySessionsAreStarted; });
    }
    stopSourcesElsewhere();
}

void DiscoveryRun::abandon()
{
    beginEnding();
    stopSourcesElsewhere();
}

void DiscoveryRun::stopSourcesElsewhere()
{
    bool isNothingLeft = false;
    {
        std::lock_guard guard(lock_);
        const auto isOver = [](const Source& source) { return !source.discovery; };
        if (sessionsState_ == kDMDiscoverySessionsAreStarted && std::all_of(sources_.begin(), sources_.end(), isOver))
            isNothingLeft = true;
    }
    if (isNothingLeft)
        return stopSources(); // marks what never started
    if (mustNotWait())
        return stopSources();
    struct Done {
        std::mutex lock;
        std::condition_variable changed;
        bool isDone = false; // guarded by lock
    };
    const auto done = std::make_shared<Done>();
    const auto status = startThread("dmf-discover", ThreadForm::detached, [run = shared_from_this(), done] {
        run->stopSources();
        std::lock_guard guard(done->lock);
        done->isDone = true;
        done->changed.notify_all();
    });
    if (status != 0)
        return stopSources();
    std::unique_lock guard(done->lock);
    done->changed.wait_for(guard, kEndLimit, [&] { return done->isDone; });
}

/// Stops those that run; those that are still starting come when they have started.
void DiscoveryRun::stopSources()
{
    std::unique_lock stopGuard(stopLock_, std::defer_lock);
    if (!mustNotWait())
        stopGuard.lock();
    else if (!stopGuard.try_lock())
        return; // another thread is about it, and may be waiting for this one
    // What a back end suffered from last stays on record.
    auto told = sources();
    std::vector<std::pair<std::shared_ptr<IDMServiceDiscovery>, std::shared_ptr<IDMServiceDiscoveryDelegate>>> running;
    {
        std::lock_guard guard(lock_);
        const bool isCreated = sessionsState_ == kDMDiscoverySessionsAreStarted;
        for (std::size_t index = 0; index < sources_.size(); ++index) {
            Source& source = sources_[index];
            if (source.told.state == State::starting && isCreated)
                source.told.state = State::stopped;
            if (source.told.state != State::running)
                continue;
            source.told.state = State::stopped;
            source.told.error = std::move(told[index].error);
            running.emplace_back(std::move(source.discovery), std::move(source.reports));
        }
    }
    for (auto& [discovery, reports] : running) {
        try {
            discovery->stop();
            discovery = nullptr;
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
            source.error = troubleOf(*discovery);
        told.push_back(std::move(source));
    }
    return told;
}

} // namespace dmf::internal
