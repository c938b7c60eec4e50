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
using dmf::internal::DiscoveryRun;
using dmf::internal::Gathering;

namespace {
using Modes = std::set<std::string>;

constexpr std::string_view kIsRunning = "Discovery running allready";
/// Seconds; after that a synchronous run looks whether it has been stopped, which does not wake its run loop.
constexpr double kLongestTurn = 0.1;

/// The calling thread's run loop in the mode of synchronous runs, which does not end for lack of sources.
class SynchronousLoop final {
public:
    SynchronousLoop() { runLoop_->addSource(port_, kDMDiscoveryPerformMode); }
    ~SynchronousLoop() { port_->invalidate(); }
    SynchronousLoop(const SynchronousLoop&) = delete;
    SynchronousLoop& operator=(const SynchronousLoop&) = delete;

    [[nodiscard]] const std::shared_ptr<RunLoop>& runLoop() const noexcept { return runLoop_; }
    [[nodiscard]] const std::shared_ptr<RunLoopSource>& port() const noexcept { return port_; }
    /// Serves what comes within so many seconds, or the first that comes; tells whether something came. Keeps the first
    /// exception that a report throws.
    bool turn(double seconds, std::exception_ptr& thrown) const
    {
        try {
            const auto limit = dmf::Date::now().addingTimeInterval(seconds);
            const auto result = runLoop_->runMode(kDMDiscoveryPerformMode, limit, true);
            return result == RunLoop::Result::handledSource || result == RunLoop::Result::stopped;
        } catch (...) {
            if (!thrown)
                thrown = std::current_exception();
            return true;
        }
    }

private:
    const std::shared_ptr<RunLoop> runLoop_ = RunLoop::current();
    const std::shared_ptr<RunLoopSource> port_ = RunLoopSource::create(nullptr);
};

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
    const void* const chosen = filter.get();
    {
        std::lock_guard guard(private_->reportLock);
        if (private_->filter == filter)
            return;
        private_->filter.swap(filter); // the earlier one goes after the lock
    }
    DMFLog("debug", "Discovery: discovery %@ did change filter %@  to filter '%@'", describe(this),
           dmf::formatted("%p", filter), dmf::formatted("%p", chosen));
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
    std::string_view refusal;
    {
        std::lock_guard guard(private_->lock);
        if (private_->isStarted) {
            DMFLog("warnings", "Discovery: Attempt to schedule alredy runned discovery %@.", describe(this));
            refusal = kIsRunning;
        } else if (!private_->runLoop || private_->runLoopModes.empty()) {
            dmf::Array modes;
            for (const auto& mode : private_->runLoopModes)
                modes.append(mode);
            DMFLog("warnings",
                   "Discovery:  discovery %@ is not started because run loop or modes are nil (run loop %p, modes %@).",
                   describe(this), private_->runLoop, dmf::Value(std::move(modes)));
            refusal = "Discovery is not scheduled in any run loop or mode";
        } else {
            private_->begin(weak_from_this(), connectionTypes);
            return;
        }
    }
    private_->refuse(weak_from_this(), refusal);
}

void ADMBaseDiscovery::stop()
{
    private_->end(weak_from_this());
}

ADMDiscovery::Services ADMBaseDiscovery::performDiscoveryWithTimeout(double timeout)
{
    return performDiscoveryForConnectionTypes({}, timeout);
}

ADMDiscovery::Services
ADMBaseDiscovery::performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes, double timeout)
{
    const auto gathering = std::make_shared<Gathering>();
    const SynchronousLoop loop;
    std::shared_ptr<RunLoop> oldLoop;
    Modes oldModes;
    std::shared_ptr<DiscoveryRun> run;
    {
        std::lock_guard guard(private_->lock);
        if (!private_->isStarted) {
            oldLoop = private_->runLoop;
            oldModes = private_->runLoopModes;
            if (oldLoop && !oldModes.empty())
                oldLoop->addSource(loop.port(), *oldModes.begin());
            private_->applyRunLoop(loop.runLoop(), {std::string(kDMDiscoveryPerformMode)});
            run = private_->begin(weak_from_this(), connectionTypes, gathering);
        }
    }
    if (!run) {
        DMFLog("warnings", "Discovery: attempt to perform alredy runned discovery %@.", describe(this));
        private_->refuse(weak_from_this(), kIsRunning);
        return std::nullopt;
    }

    // What a report throws reaches the caller, when everything is as it was.
    std::exception_ptr thrown;
    run->waitUntilCreated();
    gathering->begin();
    for (double left = timeout; left > 0 && !run->isEnding() && !thrown; left = timeout - gathering->idleTime())
        loop.turn(std::min(left, kLongestTurn), thrown);
    private_->end(weak_from_this(), run.get());
    setRunLoop(oldLoop, oldModes);
    while (loop.turn(0, thrown)) {
    }
    if (thrown)
        std::rethrow_exception(thrown);
    return gathering->all();
}
