#include <dmf/ADMBaseDiscovery.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <mutex>
#include <utility>

#include "discovery/DiscoveryPrivate.h"

using dmf::Dictionary;
using dmf::RunLoop;
using dmf::RunLoopSource;

namespace {
using Modes = std::set<std::string>;

std::string describe(const ADMBaseDiscovery* discovery)
{
    return dmf::formatted("<ADMBaseDiscovery %p>", static_cast<const void*>(discovery));
}

std::vector<std::string> withoutDuplicates(std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}
} // namespace

ADMBaseDiscovery::ADMBaseDiscovery(const std::vector<std::string>& channelNames)
    : private_(std::make_shared<Private>(withoutDuplicates(channelNames)))
{
}

std::shared_ptr<ADMBaseDiscovery> ADMBaseDiscovery::initWithChannelNames(const std::vector<std::string>& channelNames)
{
    struct Made : ADMBaseDiscovery {
        explicit Made(const std::vector<std::string>& names) : ADMBaseDiscovery(names) {}
    };
    return std::make_shared<Made>(channelNames);
}

ADMBaseDiscovery::~ADMBaseDiscovery()
{
    if (private_->run)
        private_->run->abandon();
    private_->stubPort->invalidate();
}

std::vector<std::string> ADMBaseDiscovery::availableConnectionTypesToDiscover()
{
    std::vector<std::string> types;
    for (const auto type :
         {kUSBConnectionType, kRendezvousConnectionType, kSocketConnectionType, kBluetoothConnectionType})
        types.emplace_back(type);
    return types;
}

const Dictionary& ADMBaseDiscovery::connectionTypeToParametersMap()
{
    return dmf::internal::connectionTypeToParametersMap();
}

std::string ADMBaseDiscovery::channelNameForProtocol(std::string_view protocolName)
{
    const std::array<std::pair<std::string_view, std::string_view>, 5> rules{{
        {kDMDiscoveryEWSProtocolName, kDMDiscoveryEWSChannelName},
        {kDMDiscoveryHDTProtocolName, kDMDiscoveryPrintChannelName},
        {kDMDiscoveryPMLProtocolName, kDMDiscoveryPrintChannelName},
        {kDMDiscoveryPrintProtocolName, kDMDiscoveryPrintChannelName},
        {kDMDiscoveryVstatusProtocolName, kDMDiscoveryPrintChannelName},
    }};
    for (const auto& [protocol, channel] : rules) {
        if (protocol == protocolName)
            return std::string(channel);
    }
    return std::string(protocolName);
}

std::shared_ptr<ADMDiscoveryDelegate> ADMBaseDiscovery::delegate() const
{
    std::lock_guard guard(private_->reportLock);
    return private_->delegate.lock();
}

void ADMBaseDiscovery::setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate)
{
    std::lock_guard guard(private_->reportLock);
    private_->delegate = delegate;
}

std::shared_ptr<ADMDiscoveryFilter> ADMBaseDiscovery::filter() const
{
    std::lock_guard guard(private_->reportLock);
    return private_->filter;
}

void ADMBaseDiscovery::setFilter(std::shared_ptr<ADMDiscoveryFilter> filter)
{
    {
        std::lock_guard guard(private_->reportLock);
        if (private_->filter == filter)
            return;
        private_->filter.swap(filter); // the earlier one goes after the lock
    }
    if (DMIsLoggingEnabled())
        DMFLog("debug", "Discovery: discovery %@ did change filter %@  to filter '%@'", describe(this),
               dmf::formatted("%p", filter), dmf::formatted("%p", this->filter()));
    private_->notify(weak_from_this(), [](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryFilterDidChange)
            listener.discoveryFilterDidChange(discovery);
    });
}

std::vector<std::string> ADMBaseDiscovery::availableConnectionTypes() const
{
    return availableConnectionTypesToDiscover();
}

void ADMBaseDiscovery::setParametersToResolve(std::optional<Dictionary> parameters,
                                              std::optional<std::string_view> connectionType)
{
    if (!connectionType)
        return;
    std::lock_guard guard(private_->lock);
    if (parameters)
        private_->connectionParameters.set(*connectionType, std::move(*parameters));
    else
        private_->connectionParameters.remove(*connectionType);
}

Dictionary ADMBaseDiscovery::connectionsParametersToResolve() const
{
    std::lock_guard guard(private_->lock);
    return private_->connectionParameters;
}

void ADMBaseDiscovery::setConnectionsParametersToResolve(Dictionary parameters)
{
    std::lock_guard guard(private_->lock);
    private_->connectionParameters = std::move(parameters);
}

Dictionary ADMBaseDiscovery::parameters() const
{
    std::lock_guard guard(private_->lock);
    return private_->parameters;
}

void ADMBaseDiscovery::setParameters(Dictionary parameters)
{
    std::lock_guard guard(private_->lock);
    private_->parameters = std::move(parameters);
}

bool ADMBaseDiscovery::isStarted() const noexcept
{
    return private_->isStarted;
}

const std::vector<std::string>& ADMBaseDiscovery::channelNames() const noexcept
{
    return private_->channelNames;
}

std::shared_ptr<RunLoop> ADMBaseDiscovery::runLoop() const
{
    std::lock_guard guard(private_->lock);
    return private_->runLoop;
}

Modes ADMBaseDiscovery::runLoopModes() const
{
    std::lock_guard guard(private_->lock);
    return private_->runLoopModes;
}

std::vector<ADMDiscoverySource> ADMBaseDiscovery::sources() const
{
    const auto run = private_->currentRun();
    return run ? run->sources() : std::vector<ADMDiscoverySource>();
}

void ADMBaseDiscovery::setRunLoop(std::shared_ptr<RunLoop> runLoop, Modes modes)
{
    private_->applyRunLoop(std::move(runLoop), std::move(modes));
}

void ADMBaseDiscovery::scheduleInRunLoop(std::shared_ptr<RunLoop> runLoop, std::optional<std::string_view> mode)
{
    if (!mode) {
        DMFLog("debug", "Discovery: attempt to schedule discovery in unknown mode.");
        return;
    }
    std::lock_guard guard(private_->lock);
    Modes modes;
    if (runLoop && runLoop == private_->runLoop)
        modes = private_->runLoopModes;
    if (runLoop)
        modes.emplace(*mode);
    private_->applyRunLoop(std::move(runLoop), std::move(modes));
}

void ADMBaseDiscovery::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::optional<std::string_view> mode)
{
    std::lock_guard guard(private_->lock);
    if (!mode || !runLoop || runLoop != private_->runLoop)
        return;
    Modes modes = private_->runLoopModes;
    modes.erase(std::string(*mode));
    private_->applyRunLoop(runLoop, std::move(modes));
}

void ADMBaseDiscovery::invalidate()
{
    setRunLoop(nullptr, {});
    stop();
}

void ADMBaseDiscovery::scheduleDiscovery()
{
    scheduleDiscoveryForConnectionTypes({});
}

void ADMBaseDiscovery::scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes)
{
    std::lock_guard guard(private_->startLock);
    if (private_->isStarted) {
        DMFLog("warnings", "Discovery: Attempt to schedule alredy runned discovery %@.", describe(this));
        return private_->refuse(weak_from_this(), "Discovery running allready");
    }
    const auto loop = runLoop();
    const auto modes = runLoopModes();
    if (!loop || modes.empty()) {
        dmf::Array names;
        for (const auto& mode : modes)
            names.append(mode);
        DMFLog("warnings",
               "Discovery:  discovery %@ is not started because run loop or modes are nil (run loop %p, modes %@).",
               describe(this), loop, dmf::Value(std::move(names)));
        return private_->refuse(weak_from_this(), "Discovery is not scheduled in any run loop or mode");
    }
    private_->isStarted = true;
    DMFLog("debug", "Discovery: discovery %@ will start.", describe(this));
    private_->notify(weak_from_this(), [](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryWillStart)
            listener.discoveryWillStart(discovery);
    });
    private_->begin(weak_from_this(), connectionTypes.empty() ? availableConnectionTypes() : connectionTypes);
}

void ADMBaseDiscovery::stop()
{
    std::lock_guard guard(private_->startLock);
    if (!private_->isStarted.exchange(false))
        return;
    const auto run = private_->currentRun();
    {
        // A find under way is handed over before, or not at all.
        std::lock_guard reportGuard(private_->reportLock);
        run->beginEnding();
    }
    run->end();
    DMFLog("debug", "Discovery: discovery %@ did stop", describe(this));
    // A synchronous run looks whether it goes on.
    private_->stubPort->signal();
    if (const auto loop = runLoop())
        loop->wakeUp();
    private_->notify(weak_from_this(), [](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryDidStop)
            listener.discoveryDidStop(discovery);
    });
}

ADMDiscovery::Services ADMBaseDiscovery::performDiscoveryWithTimeout(double timeout)
{
    return performDiscoveryForConnectionTypes({}, timeout);
}

ADMDiscovery::Services
ADMBaseDiscovery::performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes, double timeout)
{
    const auto loop = RunLoop::current();
    const auto port = RunLoopSource::create(nullptr);
    std::shared_ptr<RunLoop> oldLoop;
    Modes oldModes;
    {
        std::lock_guard guard(private_->startLock);
        if (private_->isStarted) {
            DMFLog("warnings", "Discovery: attempt to perform alredy runned discovery %@.", describe(this));
            private_->refuse(weak_from_this(), "Discovery running allready");
            return std::nullopt;
        }
        {
            std::lock_guard serviceGuard(private_->serviceLock);
            private_->services.emplace();
        }
        oldLoop = runLoop();
        oldModes = runLoopModes();
        if (oldLoop && !oldModes.empty())
            oldLoop->addSource(port, *oldModes.begin());
        setRunLoop(loop, {std::string(kDMDiscoveryPerformMode)});
        scheduleDiscoveryForConnectionTypes(connectionTypes);
    }

    // What a report throws reaches the caller, when everything is as it was.
    std::exception_ptr thrown;
    try {
        private_->currentRun()->waitUntilCreated();
        private_->awaitIdleness(*loop, timeout);
    } catch (...) {
        thrown = std::current_exception();
    }
    stop();
    setRunLoop(oldLoop, oldModes);
    try {
        while (!thrown &&
               loop->runMode(kDMDiscoveryPerformMode, dmf::Date::now(), true) == RunLoop::Result::handledSource) {
        }
    } catch (...) {
        thrown = std::current_exception();
    }
    port->invalidate();

    std::vector<std::shared_ptr<ADMServiceInfo>> found;
    {
        std::lock_guard guard(private_->serviceLock);
        found = private_->services->all();
        private_->services.reset();
    }
    if (thrown)
        std::rethrow_exception(thrown);
    return found;
}
