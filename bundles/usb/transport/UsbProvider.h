#pragma once

#include <memory>
#include <string>

#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/TransportProvider.h>

namespace dmf::usb {

/// Moves a channel's bytes over the interface of its UsbDevice that serves the channel. Opening gives `busy`, at once,
/// when somebody else has the interface; the log says who.
class UsbProvider final : public TransportProvider {
public:
    UsbProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                std::shared_ptr<IDMDevice> device, std::string channelName);

protected:
    Status connect(std::shared_ptr<TransportConnection>& connection) override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-usb-channel"; }

private:
    const std::string channelName_;
};

/// A data channel to a UsbDevice.
class UsbChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
};

} // namespace dmf::usb
