#include "discovery/DiscoverySource.h"

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include <utility>

#include "discovery/BackEndThread.h"
#include "foundation/logging/Guarded.h"

namespace dmf::internal {

namespace {
Dictionary failure(std::string_view description)
{
    return {{std::string(kDMErrorDescription), description}, {std::string(kDMErrorCode), std::int64_t{-1}}};
}

Dictionary troubleOf(const IDMServiceDiscovery& discovery)
{
    return guarded("Discovery", "while a session was asked for its trouble", [&] { return discovery.lastError(); })
        .value_or(Dictionary());
}
} // namespace

DiscoverySource::DiscoverySource(std::string connectionType, std::string channelName, Report report)
    : connectionType_(std::move(connectionType)), channelName_(std::move(channelName)), report_(std::move(report))
{
}

bool DiscoverySource::isWaiting() const
{
    std::lock_guard guard(lock_);
    return state_ == State::waiting;
}

/// The one way from state to state, but for those on which a back end comes or goes.
bool DiscoverySource::change(State from, State to, Dictionary error)
{
    std::lock_guard guard(lock_);
    if (state_ != from)
        return false;
    state_ = to;
    error_ = std::move(error);
    changed_.notify_all();
    return true;
}

void DiscoverySource::fail(std::string_view reason)
{
    (void)change(State::waiting, State::failed, failure(reason)); // or it has been stopped
}

void DiscoverySource::start(const std::shared_ptr<const Class>& implementor, const Dictionary& parameters,
                            const Dictionary* parametersToResolve)
{
    if (!change(State::waiting, implementor ? State::starting : State::missing) || !implementor)
        return;
    BackEnd backEnd;
    Dictionary error;
    if (!launch(*implementor, parameters, parametersToResolve, backEnd, error)) {
        backEnd = {}; // goes before anybody hears of it
        if (!change(State::starting, State::failed, error))
            (void)change(State::stopping, State::failed, error);
        return;
    }
    DMFLog("debug", "Discovery: started the discovery session for '%@' connection, service '%@'", connectionType_,
           channelName_);
    if (!takeOver(backEnd))
        finish(backEnd);
}

bool DiscoverySource::launch(const Class& implementor, const Dictionary& parameters,
                             const Dictionary* parametersToResolve, BackEnd& backEnd, Dictionary& error)
{
    try {
        backEnd.discovery = implementor.make<IDMServiceDiscovery>(channelName_, connectionType_, parameters);
        if (!backEnd.discovery) {
            error = failure("The service discovery cannot be created.");
            return false;
        }
        if (parametersToResolve)
            backEnd.discovery->setParametersToResolve(*parametersToResolve);
        backEnd.reports = reportsToThis();
        backEnd.discovery->setDelegate(backEnd.reports);
        if (backEnd.discovery->startServiceDiscovery(&error))
            return true;
        if (error.empty())
            error = failure("The session did not start.");
    } catch (...) {
        error = failure(caughtText());
        logCaught("Discovery", formatted("while the session for '%@' connection, service '%@' was started",
                                         connectionType_, channelName_));
    }
    return false;
}

/// Keeps the back end that has started; false when it has been asked to stop meanwhile.
bool DiscoverySource::takeOver(BackEnd& started)
{
    std::lock_guard guard(lock_);
    if (state_ != State::starting)
        return false;
    state_ = State::running;
    backEnd_ = std::move(started);
    changed_.notify_all();
    return true;
}

std::shared_ptr<IDMServiceDiscoveryDelegate> DiscoverySource::reportsToThis()
{
    const auto handOn = [weak = weak_from_this()](const Service& service, Change change) {
        const auto source = weak.lock();
        if (source && service && source->report_(service, change) && change == Change::found)
            ++source->finds_;
    };
    auto reports = std::make_shared<IDMServiceDiscoveryDelegate>();
    reports->serviceDiscoveryDidFindService = [handOn](IDMServiceDiscovery&, const Service& service) {
        handOn(service, Change::found);
    };
    reports->serviceDiscoveryDidDisappearService = [handOn](IDMServiceDiscovery&, const Service& service) {
        handOn(service, Change::lost);
    };
    return reports;
}

void DiscoverySource::stop()
{
    if (change(State::waiting, State::stopped) || change(State::starting, State::stopping))
        return;
    const auto stopped = std::make_shared<BackEnd>();
    {
        std::lock_guard guard(lock_);
        if (state_ != State::running)
            return;
        state_ = State::stopping;
        *stopped = std::exchange(backEnd_, {});
        changed_.notify_all();
    }
    const auto status = startBackEndThread([self = shared_from_this(), stopped] { self->finish(*stopped); });
    if (status == 0)
        return;
    DMFLog("errors", "Discovery: cannot start a thread to stop a session (error %d)", status);
    finish(*stopped);
}

/// Stops a back end and lets it go; whoever waits hears of it when both are done.
void DiscoverySource::finish(BackEnd& backEnd)
{
    Dictionary error = troubleOf(*backEnd.discovery); // what it suffered from last stays on record
    State end = State::stopped;
    try {
        backEnd.discovery->stop();
    } catch (...) {
        error = failure(caughtText());
        end = State::failed;
        logCaught("Discovery", "while a session was stopped");
    }
    backEnd = {};
    (void)change(State::stopping, end, std::move(error));
}

void DiscoverySource::waitUntilStarted(Clock::time_point deadline) const
{
    std::unique_lock guard(lock_);
    changed_.wait_until(guard, deadline, [this] { return state_ != State::waiting && state_ != State::starting; });
}

void DiscoverySource::waitUntilStopped(Clock::time_point deadline) const
{
    std::unique_lock guard(lock_);
    changed_.wait_until(guard, deadline, [this] { return state_ != State::stopping; });
}

ADMDiscoverySource DiscoverySource::told() const
{
    using Told = ADMDiscoverySource::State;
    const auto toldState = [](State state) {
        switch (state) {
        case State::waiting:
        case State::starting: return Told::starting;
        case State::running: return Told::running;
        case State::missing: return Told::missing;
        case State::failed: return Told::failed;
        case State::stopping: return Told::stopping;
        case State::stopped: break;
        }
        return Told::stopped;
    };
    ADMDiscoverySource told;
    told.connectionType = connectionType_;
    told.channelName = channelName_;
    std::shared_ptr<IDMServiceDiscovery> asked;
    {
        std::lock_guard guard(lock_);
        told.state = toldState(state_);
        told.error = error_;
        told.finds = finds_;
        asked = backEnd_.discovery;
    }
    if (asked)
        told.error = troubleOf(*asked);
    return told;
}

} // namespace dmf::internal
