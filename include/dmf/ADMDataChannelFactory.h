#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMDiscovery.h>
#include <dmf/platform/Export.h>

class ADMDuplexDataChannel;
class ADMServiceInfo;

/// Finds services by the channels that they offer, and makes data channels to them: the face that clients use. It is a
/// discovery (see ADMDiscovery for what the inherited operations do), whose back ends look for the channel names.
/// Thread-safe. Each base operation throws dmf::UnrecognizedOperation.
class DMF_EXPORT ADMDataChannelFactory : public virtual ADMDiscovery {
public:
    /// The name under which the library knows this kind of factory: "DATA_CHANNEL".
    [[nodiscard]] static std::string_view interfaceID() noexcept;
    /// The library's factory, an ADMChannelFactoryImp.
    [[nodiscard]] static std::shared_ptr<ADMDataChannelFactory> init();
    ~ADMDataChannelFactory() override;

    /// The channel names that services are looked for by, most usual first.
    [[nodiscard]] virtual std::vector<std::string> supportedChannelNames() const;
    /// A new channel of that name to the service's device, not yet open; empty without a service info, or when no
    /// transport is there for its connection type. May load plug-ins; does not touch the device.
    [[nodiscard]] virtual std::shared_ptr<ADMDuplexDataChannel>
    newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                        std::string_view channelName);

    /// The channel names to look for from now on. When they really change, a running discovery ends without a report.
    virtual void setServiceNamesToDiscover(const std::vector<std::string>& names);
    /// The operations of a discovery, for these channel names from now on.
    using ADMDiscovery::performDiscoveryForConnectionTypes;
    using ADMDiscovery::performDiscoveryWithTimeout;
    using ADMDiscovery::scheduleDiscoveryForConnectionTypes;
    virtual void scheduleDiscoveryForServiceNames(const std::vector<std::string>& names);
    virtual void scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                     const std::vector<std::string>& serviceNames);
    [[nodiscard]] virtual Services performDiscoveryWithTimeout(double timeout, const std::vector<std::string>& names);
    [[nodiscard]] virtual Services performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                                      double timeout,
                                                                      const std::vector<std::string>& serviceNames);

protected:
    /// For subclasses; `init` makes the library's own.
    ADMDataChannelFactory();
};
