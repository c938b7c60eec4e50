#pragma once

#include <dmf/ADMDataChannelFactory.h>

/// Makes channels of the class that the service's own I/O provider names, or else of the one that the transport plug-in
/// for its connection type supplies. Thread-safe.
class DMF_EXPORT ADMChannelFactoryImp : public ADMDataChannelFactory {
public:
    ADMChannelFactoryImp();
    ~ADMChannelFactoryImp() override;

    [[nodiscard]] std::vector<std::string> supportedChannelNames() const override;
    [[nodiscard]] std::shared_ptr<ADMDuplexDataChannel>
    newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                        std::string_view channelName) override;
};
