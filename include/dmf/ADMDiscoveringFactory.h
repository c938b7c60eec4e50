#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMBaseFactory.h>
#include <dmf/ADMDiscovery.h>

/// A factory that also finds the services it makes objects for. It owns one discovery, its model, hands the discovery
/// operations on to it, and tells each of its reports to the delegate first, then to everybody by a notification on the
/// default notification centre, with the factory (this class's own part of it) as the sender:
///
/// kDMDiscoveryWillStartNotification, kDMDiscoveryDidStopNotification, kDMDiscoveryFilterDidChangeNotification; and
/// kDMDiscoveryDidFindServiceNotification, kDMDiscoveryDidRemoveServiceNotification, whose user info holds the service
/// info under kDMServiceInfoKey (`dmf::Value::objectAs<ADMServiceInfo>`), and kDMDiscoveryDidNotDiscoverNotification,
/// whose user info is the error.
///
/// Owned by std::shared_ptr. Thread-safe; reports arrive on the run loop in which the discovery is scheduled, and no
/// lock is held then.
class DMF_EXPORT ADMDiscoveringFactory : public ADMBaseFactory,
                                         public virtual ADMDiscovery,
                                         public std::enable_shared_from_this<ADMDiscoveringFactory> {
public:
    ADMDiscoveringFactory();
    ~ADMDiscoveringFactory() override;
    ADMDiscoveringFactory(const ADMDiscoveringFactory&) = delete;
    ADMDiscoveringFactory& operator=(const ADMDiscoveringFactory&) = delete;

    /// What the notifications name as their sender.
    [[nodiscard]] const void* notificationSender() const noexcept { return this; }

    /// The channel names to look for. A concrete factory supplies them; this one throws dmf::UnrecognizedOperation.
    [[nodiscard]] virtual std::vector<std::string> channelNamesToDiscover();
    /// What the back ends are given.
    [[nodiscard]] virtual dmf::Dictionary discoveryParameters();

    /// The discovery, made on first use; not to be asked for in a constructor.
    [[nodiscard]] std::shared_ptr<ADMBaseDiscovery> discoveryModel();
    /// Replaces the discovery by one for these names, which takes over the filter, the run loop and its modes, and the
    /// parameters; a running discovery ends without a report and is not started again. Without names the next use makes
    /// one for `channelNamesToDiscover`.
    virtual void resetChannelNamesToDiscover(const std::vector<std::string>& channelNames);
    /// See ADMBaseDiscovery::channelNameForProtocol.
    [[nodiscard]] static std::string channelNameForProtocol(std::string_view protocolName);

    /// Which operations the delegate answers is looked at now; filled in later, they are not heard, and emptied later,
    /// not called. What a delegate or an observer throws is logged, and keeps nobody else from hearing.
    void setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate) override;
    [[nodiscard]] std::shared_ptr<ADMDiscoveryDelegate> delegate() const override;
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

    /// The factory's recursive lock, over the model and the delegate. Not to be held while a discovery is ended: a
    /// report under way may want it.
    void lock() const { lock_.lock(); }
    void unlock() const { lock_.unlock(); }

protected:
    [[nodiscard]] std::recursive_mutex& mutex() const noexcept { return lock_; }

private:
    [[nodiscard]] std::shared_ptr<ADMBaseDiscovery> model() const;
    [[nodiscard]] std::shared_ptr<ADMDiscoveryDelegate> delegateFor(unsigned flag) const;
    template <class Operation, class... Arguments>
    void tell(unsigned flag, Operation operation, std::string_view notification, const Arguments&... arguments);
    void listenToModel();

    mutable std::recursive_mutex lock_;
    std::shared_ptr<ADMBaseDiscovery> model_;            // guarded by lock_
    std::shared_ptr<ADMDiscoveryDelegate> modelReports_; // guarded by lock_; what the model tells goes through it
    std::weak_ptr<ADMDiscoveryDelegate> delegate_;       // guarded by lock_
    unsigned delegateFlags_ = 0;                         // guarded by lock_
};
