#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMDiscovery.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

/// What became of one of the back ends that a discovery works with.
struct ADMDiscoverySource {
    enum class State {
        starting, ///< it has not been started yet
        running,  ///< it looks for services; `error` then tells what keeps it from finding any just now
        missing,  ///< no plug-in is there for the connection type
        failed,   ///< it did not start, or threw as it was stopped; see `error`
        stopping, ///< it has been asked to stop and has not done so yet; one that hangs stays in this state
        stopped,  ///< the discovery has been stopped, and the back end with it
    };
    std::string connectionType;
    std::string channelName;
    State state = State::starting;
    /// kDMErrorDescription and kDMErrorCode; empty when nothing went wrong.
    dmf::Dictionary error;
    /// Reports of found services that the filter let through.
    std::uint64_t finds = 0;
};

/// Looks for the services of some channel names over several connection types: for each type, the back end that a
/// plug-in supplies runs once for each name.
///
/// Owned by std::shared_ptr, which may be released on any thread and at any time: that stops the discovery without a
/// further report, and waits as `stop` does unless it has been stopped before. Reports do not keep it alive.
/// Thread-safe.
class DMF_EXPORT ADMBaseDiscovery : public virtual ADMDiscovery, public std::enable_shared_from_this<ADMBaseDiscovery> {
public:
    /// Duplicates are dropped; the names are then in no particular order.
    [[nodiscard]] static std::shared_ptr<ADMBaseDiscovery>
    initWithChannelNames(const std::vector<std::string>& channelNames);
    ~ADMBaseDiscovery() override;
    ADMBaseDiscovery(const ADMBaseDiscovery&) = delete;
    ADMBaseDiscovery& operator=(const ADMBaseDiscovery&) = delete;

    /// "USB", "Rendezvous", "IP", "Bluetooth".
    [[nodiscard]] static std::vector<std::string> availableConnectionTypesToDiscover();
    /// What services are asked for by default when they are resolved: connection type to a dictionary whose keys name
    /// the parameters.
    [[nodiscard]] static const dmf::Dictionary& connectionTypeToParametersMap();
    /// The channel by which a protocol's services are found; a name without a rule stands for itself.
    [[nodiscard]] static std::string channelNameForProtocol(std::string_view protocolName);

    [[nodiscard]] std::shared_ptr<ADMDiscoveryDelegate> delegate() const override;
    void setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate) override;
    [[nodiscard]] std::shared_ptr<ADMDiscoveryFilter> filter() const override;
    void setFilter(std::shared_ptr<ADMDiscoveryFilter> filter) override;
    [[nodiscard]] std::vector<std::string> availableConnectionTypes() const override;
    void setParametersToResolve(std::optional<dmf::Dictionary> parameters,
                                std::optional<std::string_view> connectionType) override;
    void scheduleDiscovery() override;
    void scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes) override;
    [[nodiscard]] Services performDiscoveryWithTimeout(double timeout) override;
    [[nodiscard]] Services performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                              double timeout) override;
    void stop() override;
    void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode) override;
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::optional<std::string_view> mode) override;

    [[nodiscard]] bool isStarted() const noexcept;
    [[nodiscard]] const std::vector<std::string>& channelNames() const noexcept;
    /// What the client has chosen, whatever a synchronous run turns meanwhile.
    [[nodiscard]] std::shared_ptr<dmf::RunLoop> runLoop() const;
    [[nodiscard]] std::set<std::string> runLoopModes() const;
    /// Replaces both; reports that are pending stay where they were.
    void setRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::set<std::string> modes);
    /// Takes the run loop away and stops, in this order: the end is then told on the calling thread.
    void invalidate();
    /// Handed to each back end.
    [[nodiscard]] dmf::Dictionary parameters() const;
    void setParameters(dmf::Dictionary parameters);
    /// Connection type to the parameters to resolve.
    [[nodiscard]] dmf::Dictionary connectionsParametersToResolve() const;
    void setConnectionsParametersToResolve(dmf::Dictionary parameters);

    /// What became of each back end of the present run, or, after its end, of the last one; in the order in which they
    /// were started. Asks those that run for their trouble.
    [[nodiscard]] std::vector<ADMDiscoverySource> sources() const;

private:
    struct Private;
    explicit ADMBaseDiscovery(const std::vector<std::string>& channelNames);
    const std::unique_ptr<Private> private_;
};
