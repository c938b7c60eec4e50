#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMDiscovery;
class ADMServiceInfo;

/// What a discovery tells its client. Each may be empty. They are called on the run loop in which the discovery is
/// scheduled; without one, at once and on whatever thread the event happens. Owned by the client; the discovery holds
/// it weakly. It may stop, reschedule or release the discovery from inside a report. What it throws is logged.
struct ADMDiscoveryDelegate {
    std::function<void(ADMDiscovery& discovery)> discoveryWillStart;
    std::function<void(ADMDiscovery& discovery, const std::shared_ptr<ADMServiceInfo>& service)>
        discoveryDidFindService;
    std::function<void(ADMDiscovery& discovery, const std::shared_ptr<ADMServiceInfo>& service)>
        discoveryDidRemoveService;
    /// `error` holds kDMErrorDescription.
    std::function<void(ADMDiscovery& discovery, const dmf::Dictionary& error)> discoveryDidNotDiscover;
    std::function<void(ADMDiscovery& discovery)> discoveryDidStop;
    std::function<void(ADMDiscovery& discovery)> discoveryFilterDidChange;
};

/// Chooses among the services that a discovery finds; supplied by clients.
class DMF_EXPORT ADMDiscoveryFilter {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMDiscoveryFilter();

    /// Whether the service is to be reported. Called on the discovery thread; must not block. What it throws is logged,
    /// and the service is not reported.
    [[nodiscard]] virtual bool isAcceptedService(ADMServiceInfo& service) = 0;
};

/// Looks for services, in the background or for a time. Thread-safe. The operations of this class itself throw
/// dmf::UnrecognizedOperation.
class DMF_EXPORT ADMDiscovery {
public:
    /// Services found; empty when the run could not begin.
    using Services = std::optional<std::vector<std::shared_ptr<ADMServiceInfo>>>;

    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMDiscovery();
    ADMDiscovery(const ADMDiscovery&) = delete;
    ADMDiscovery& operator=(const ADMDiscovery&) = delete;

    [[nodiscard]] virtual std::shared_ptr<ADMDiscoveryDelegate> delegate() const;
    virtual void setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate);
    [[nodiscard]] virtual std::shared_ptr<ADMDiscoveryFilter> filter() const;
    /// Services that were reported already are not filtered again. Null takes every service.
    virtual void setFilter(std::shared_ptr<ADMDiscoveryFilter> filter);

    /// The connection types looked at by default.
    [[nodiscard]] virtual std::vector<std::string> availableConnectionTypes() const;
    /// What found services of a type are to be asked for when they are resolved, named by the dictionary's keys; a
    /// missing dictionary takes the type's entry away. Ignored without a type. For the next start.
    virtual void setParametersToResolve(std::optional<dmf::Dictionary> parameters,
                                        std::optional<std::string_view> connectionType);

    /// Starts looking, in the background: reports come to the delegate until `stop`. Loads plug-ins and starts back
    /// ends on a thread of its own; never blocks. Refused, with a report, while it runs already and without a run loop
    /// and a mode. No connection types stand for all available ones.
    virtual void scheduleDiscovery();
    virtual void scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes);
    /// Looks until nothing has been found for `timeout` seconds, turning the calling thread's run loop in a mode of the
    /// discovery's own (kDMDiscoveryPerformMode), where the delegate hears; gives the services that are there then, in
    /// no particular order. A call of `stop` ends it. Blocks for the time-out after the last find, and for the back
    /// ends to start and to stop, usually some milliseconds, 5 seconds at most in all (3 to start, 2 to stop) whatever
    /// hangs.
    [[nodiscard]] virtual Services performDiscoveryWithTimeout(double timeout);
    [[nodiscard]] virtual Services performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                                      double timeout);
    /// Ends the discovery; what was found before is still reported, then that it has stopped. All back ends that run
    /// are stopped at once, each on a thread of its own; one that is still starting is stopped as soon as it has. Waits
    /// until they have stopped, usually some milliseconds, 2 seconds at most; those that hang are left behind.
    virtual void stop();

    /// A discovery has one run loop: another one replaces it and its modes, and a null one takes it away. A missing
    /// mode is ignored.
    virtual void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode);
    virtual void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::optional<std::string_view> mode);

protected:
    ADMDiscovery();
};
