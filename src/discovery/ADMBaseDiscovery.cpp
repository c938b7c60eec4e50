#include <dmf/ADMBaseDiscovery.h>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "discovery/DiscoveryClient.h"
#include "discovery/DiscoveryRun.h"
#include "foundation/logging/AfterFork.h"
#include "service/resolution/ResolveParameters.h"

using dmf::Dictionary;
using dmf::RunLoop;
using dmf::RunLoopSource;
using dmf::internal::DiscoveryClient;
using dmf::internal::DiscoveryRun;
using dmf::internal::DiscoverySource;
using dmf::internal::Gathering;
using dmf::internal::RunLoopFeed;

namespace {
using Modes = std::set<std::string>;
using Delegate = ADMDiscoveryDelegate;

constexpr std::string_view kIsRunning = "Discovery running allready";
constexpr double kLongestTurn = 86'400; // seconds; however long the time-out is

/// The calling thread's run loop in the mode of synchronous runs, which does not end for lack of sources.
class SynchronousLoop final {
public:
    SynchronousLoop()
    {
        runLoop_->addSource(port_, kDMDiscoveryPerformMode);
        feed_->schedule(runLoop_, kDMDiscoveryPerformMode);
    }
    ~SynchronousLoop()
    {
        port_->invalidate();
        feed_->retire();
    }
    SynchronousLoop(const SynchronousLoop&) = delete;
    SynchronousLoop& operator=(const SynchronousLoop&) = delete;

    /// What is handed to it is served by `turn`.
    [[nodiscard]] const std::shared_ptr<RunLoopFeed>& feed() const noexcept { return feed_; }
    /// Serves what comes within so many seconds, or the first that comes; tells whether something came.
    [[nodiscard]] bool turn(double seconds) const
    {
        const auto result = dmf::internal::guarded("Discovery", "in the mode of synchronous runs", [&] {
            return runLoop_->runMode(kDMDiscoveryPerformMode, dmf::Date::now().addingTimeInterval(seconds), true);
        });
        return !result || *result == RunLoop::Result::handledSource || *result == RunLoop::Result::stopped;
    }

private:
    const std::shared_ptr<RunLoop> runLoop_ = RunLoop::current();
    const std::shared_ptr<RunLoopSource> port_ = RunLoopSource::create(nullptr);
    const std::shared_ptr<RunLoopFeed> feed_ = std::make_shared<RunLoopFeed>();
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

/// One back end serves a connection type, however often the type is named; the order stays.
std::vector<std::string> eachOnce(const std::vector<std::string>& types)
{
    std::vector<std::string> once;
    for (const auto& type : types) {
        if (std::find(once.begin(), once.end(), type) == once.end())
            once.push_back(type);
    }
    return once;
}
} // namespace

/// The client's side and the run of the last start. Whether a discovery is started is told by the client's open session
/// alone; `lock` orders starting, stopping and scheduling. The client's lock is taken after it.
struct ADMBaseDiscovery::Private {
    explicit Private(std::vector<std::string> names) : channelNames(std::move(names)) {}

    const std::vector<std::string> channelNames;
    /// Shared with the sources, which may outlive the discovery.
    const std::shared_ptr<DiscoveryClient> client = std::make_shared<DiscoveryClient>();

    mutable std::recursive_mutex lock;
    std::shared_ptr<DiscoveryRun> run;                                                // guarded by lock
    Dictionary connectionParameters = dmf::internal::connectionTypeToParametersMap(); // guarded by lock
    Dictionary parameters;                                                            // guarded by lock

    void begin(const std::string& self, const std::vector<std::string>& connectionTypes,
               const std::shared_ptr<const DiscoveryClient::Session>& session);
    void end(const std::string& self, const DiscoveryClient::Session* only = nullptr);
    void refuse(std::string_view description) const;
    [[nodiscard]] std::shared_ptr<DiscoveryRun> lastRun() const;
};

/// Starts a run. Called with the lock held, while none is open.
void ADMBaseDiscovery::Private::begin(const std::string& self, const std::vector<std::string>& connectionTypes,
                                      const std::shared_ptr<const DiscoveryClient::Session>& session)
{
    // Made before anything is open: what fails for want of memory has then not begun.
    auto next = std::make_shared<DiscoveryRun>(
        DiscoveryRun::Plan{connectionTypes.empty() ? availableConnectionTypesToDiscover() : eachOnce(connectionTypes),
                           channelNames, connectionParameters, parameters},
        [client = client, session](const DiscoverySource::Service& service, DiscoverySource::Change change) {
            return client->report(*session, service, change);
        });
    DMFLog("debug", "Discovery: discovery %@ will start.", self);
    client->open(session);
    run = next;
    client->tell(&Delegate::discoveryWillStart, session.get());
    next->begin();
}

/// Ends the present run, if there is one; with `only`, if it is that one's.
void ADMBaseDiscovery::Private::end(const std::string& self, const DiscoveryClient::Session* only)
{
    std::shared_ptr<const DiscoveryClient::Session> closed;
    std::shared_ptr<DiscoveryRun> ended;
    {
        std::lock_guard guard(lock);
        closed = client->close(only);
        ended = run;
    }
    if (!closed)
        return;
    if (closed->feed)
        closed->feed->add([] {}); // wakes the synchronous run, which need not wait for what follows
    ended->end();
    DMFLog("debug", "Discovery: discovery %@ did stop", self);
    client->tell(&Delegate::discoveryDidStop, closed.get());
}

void ADMBaseDiscovery::Private::refuse(std::string_view description) const
{
    client->tell(&Delegate::discoveryDidNotDiscover, nullptr,
                 Dictionary{{std::string(kDMErrorDescription), description}});
}

std::shared_ptr<DiscoveryRun> ADMBaseDiscovery::Private::lastRun() const
{
    std::lock_guard guard(lock);
    return run;
}

ADMBaseDiscovery::ADMBaseDiscovery(const std::vector<std::string>& channelNames)
    : private_(std::make_unique<Private>(withoutDuplicates(channelNames)))
{
}

std::shared_ptr<ADMBaseDiscovery> ADMBaseDiscovery::initWithChannelNames(const std::vector<std::string>& channelNames)
{
    struct Made : ADMBaseDiscovery {
        explicit Made(const std::vector<std::string>& names) : ADMBaseDiscovery(names) {}
    };
    const auto made = std::make_shared<Made>(channelNames);
    made->private_->client->setOwner(std::weak_ptr<ADMBaseDiscovery>(made));
    return made;
}

ADMBaseDiscovery::~ADMBaseDiscovery()
{
    const bool isStarted = private_->client->isOpen();
    private_->client->retire();
    if (isStarted)
        private_->run->end();
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
    return private_->client->delegate();
}

void ADMBaseDiscovery::setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate)
{
    private_->client->setDelegate(delegate);
}

std::shared_ptr<ADMDiscoveryFilter> ADMBaseDiscovery::filter() const
{
    return private_->client->filter();
}

void ADMBaseDiscovery::setFilter(std::shared_ptr<ADMDiscoveryFilter> filter)
{
    const void* const chosen = filter.get();
    if (!private_->client->swapFilter(filter))
        return;
    DMFLog("debug", "Discovery: discovery %@ did change filter %@  to filter '%@'", describe(this),
           dmf::formatted("%p", filter), dmf::formatted("%p", chosen));
    private_->client->tell(&Delegate::discoveryFilterDidChange, nullptr);
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
    return private_->client->isOpen();
}

const std::vector<std::string>& ADMBaseDiscovery::channelNames() const noexcept
{
    return private_->channelNames;
}

std::shared_ptr<RunLoop> ADMBaseDiscovery::runLoop() const
{
    return private_->client->runLoop();
}

Modes ADMBaseDiscovery::runLoopModes() const
{
    return private_->client->runLoopModes();
}

std::vector<ADMDiscoverySource> ADMBaseDiscovery::sources() const
{
    const auto run = private_->lastRun();
    return run ? run->told() : std::vector<ADMDiscoverySource>();
}

void ADMBaseDiscovery::setRunLoop(std::shared_ptr<RunLoop> runLoop, Modes modes)
{
    std::lock_guard guard(private_->lock);
    private_->client->schedule(std::move(runLoop), std::move(modes));
}

void ADMBaseDiscovery::scheduleInRunLoop(std::shared_ptr<RunLoop> runLoop, std::optional<std::string_view> mode)
{
    if (dmf::internal::isRefusedAfterFork())
        return;
    if (!mode) {
        DMFLog("debug", "Discovery: attempt to schedule discovery in unknown mode.");
        return;
    }
    std::lock_guard guard(private_->lock);
    DiscoveryClient& client = *private_->client;
    Modes modes;
    if (runLoop && runLoop == client.runLoop())
        modes = client.runLoopModes();
    if (runLoop)
        modes.emplace(*mode);
    client.schedule(std::move(runLoop), std::move(modes));
}

void ADMBaseDiscovery::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::optional<std::string_view> mode)
{
    std::lock_guard guard(private_->lock);
    DiscoveryClient& client = *private_->client;
    if (!mode || !runLoop || runLoop != client.runLoop())
        return;
    Modes modes = client.runLoopModes();
    modes.erase(std::string(*mode));
    client.schedule(runLoop, std::move(modes));
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
    if (dmf::internal::isRefusedAfterFork())
        return;
    std::string_view refusal;
    {
        std::lock_guard guard(private_->lock);
        const auto runLoop = private_->client->runLoop();
        const auto modes = private_->client->runLoopModes();
        if (isStarted()) {
            DMFLog("warnings", "Discovery: Attempt to schedule alredy runned discovery %@.", describe(this));
            refusal = kIsRunning;
        } else if (!runLoop || modes.empty()) {
            dmf::Array described;
            for (const auto& mode : modes)
                described.append(mode);
            DMFLog("warnings",
                   "Discovery:  discovery %@ is not started because run loop or modes are nil (run loop %p, modes %@).",
                   describe(this), runLoop, dmf::Value(std::move(described)));
            refusal = "Discovery is not scheduled in any run loop or mode";
        } else {
            private_->begin(describe(this), connectionTypes, std::make_shared<DiscoveryClient::Session>());
            return;
        }
    }
    private_->refuse(refusal);
}

void ADMBaseDiscovery::stop()
{
    if (dmf::internal::isRefusedAfterFork())
        return;
    private_->end(describe(this));
}

ADMDiscovery::Services ADMBaseDiscovery::performDiscoveryWithTimeout(double timeout)
{
    return performDiscoveryForConnectionTypes({}, timeout);
}

ADMDiscovery::Services
ADMBaseDiscovery::performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes, double timeout)
{
    if (dmf::internal::isRefusedAfterFork())
        return std::nullopt;
    const auto self = shared_from_this(); // a report may release the last other reference
    const SynchronousLoop loop;
    const auto session = std::make_shared<const DiscoveryClient::Session>(
        DiscoveryClient::Session{std::make_shared<Gathering>(), loop.feed()});
    std::shared_ptr<DiscoveryRun> run;
    {
        std::lock_guard guard(private_->lock);
        if (!isStarted()) {
            private_->begin(describe(this), connectionTypes, session);
            run = private_->run;
        }
    }
    if (!run) {
        DMFLog("warnings", "Discovery: attempt to perform alredy runned discovery %@.", describe(this));
        private_->refuse(kIsRunning);
        return std::nullopt;
    }

    run->waitUntilStarted();
    Gathering& gathering = *session->gathering;
    gathering.begin();
    for (double left = timeout; left > 0 && private_->client->isOpen(session.get());
         left = timeout - gathering.idleTime())
        (void)loop.turn(std::min(left, kLongestTurn));
    private_->end(describe(this), session.get());
    while (loop.turn(0)) { // what is pending is told in here
    }
    return gathering.all();
}
