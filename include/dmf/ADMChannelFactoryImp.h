#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDiscoveringFactory.h>

/// The library's channel factory. It makes channels of the class that the service's own I/O provider names, or else of
/// the one that the transport plug-in for its connection type supplies, and looks for `supportedChannelNames` unless
/// told otherwise. Owned by std::shared_ptr. Thread-safe.
class DMF_EXPORT ADMChannelFactoryImp : public ADMDataChannelFactory, public ADMDiscoveringFactory {
public:
    ADMChannelFactoryImp();
    ~ADMChannelFactoryImp() override;

    [[nodiscard]] std::vector<std::string> supportedChannelNames() const override;
    [[nodiscard]] std::shared_ptr<ADMDuplexDataChannel>
    newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                        std::string_view channelName) override;

    /// The channel names to look for; the supported ones until others are set. Setting them leaves a discovery that
    /// exists as it is.
    [[nodiscard]] std::set<std::string> channelNames();
    void setChannelNames(std::set<std::string> names);
    [[nodiscard]] std::vector<std::string> channelNamesToDiscover() override;
    /// Nothing happens unless the set of names changes.
    void resetChannelNamesToDiscover(const std::vector<std::string>& channelNames) override;

    using ADMDiscoveringFactory::performDiscoveryForConnectionTypes;
    using ADMDiscoveringFactory::performDiscoveryWithTimeout;
    using ADMDiscoveringFactory::scheduleDiscoveryForConnectionTypes;
    void setServiceNamesToDiscover(const std::vector<std::string>& names) override;
    void scheduleDiscoveryForServiceNames(const std::vector<std::string>& names) override;
    void scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                             const std::vector<std::string>& serviceNames) override;
    [[nodiscard]] Services performDiscoveryWithTimeout(double timeout, const std::vector<std::string>& names) override;
    [[nodiscard]] Services performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                              double timeout,
                                                              const std::vector<std::string>& serviceNames) override;

    /// The run loop and its modes in which the factory was scheduled last.
    [[nodiscard]] std::shared_ptr<dmf::RunLoop> runLoop() const;
    [[nodiscard]] std::set<std::string> modes() const;
    void setRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::set<std::string> modes);
    void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode) override;
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::optional<std::string_view> mode) override;

private:
    std::optional<std::set<std::string>> channelNames_; // guarded by the factory's lock, as are the others
    std::shared_ptr<dmf::RunLoop> runLoop_;
    std::set<std::string> modes_;
};
