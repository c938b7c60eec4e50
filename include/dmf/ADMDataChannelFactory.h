#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>

class ADMDuplexDataChannel;
class ADMServiceInfo;

/// Makes data channels: the face that clients use. Thread-safe.
class DMF_EXPORT ADMDataChannelFactory {
public:
    /// The name under which the library knows this kind of factory: "DATA_CHANNEL".
    [[nodiscard]] static std::string_view interfaceID() noexcept;
    /// The library's factory, an ADMChannelFactoryImp.
    [[nodiscard]] static std::shared_ptr<ADMDataChannelFactory> init();
    virtual ~ADMDataChannelFactory();

    /// The channel names that services are looked for by, most usual first. Each base operation throws
    /// dmf::UnrecognizedOperation.
    [[nodiscard]] virtual std::vector<std::string> supportedChannelNames() const;
    /// A new channel of that name to the service's device, not yet open; empty without a service info, or when no
    /// transport is there for its connection type. May load plug-ins; does not touch the device.
    [[nodiscard]] virtual std::shared_ptr<ADMDuplexDataChannel>
    newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                        std::string_view channelName);
};
