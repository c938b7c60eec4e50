#pragma once

#include <memory>

#include <dmf/TransportProvider.h>

namespace dmf::socket {

/// Moves a channel's bytes over one TCP connection to its NetworkDevice.
class SocketProvider final : public TransportProvider {
public:
    /// Connecting takes `connectTimeout` seconds, but never more than fifteen.
    SocketProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                   std::shared_ptr<IDMDevice> device, double connectTimeout);

protected:
    Status connect(std::shared_ptr<TransportConnection>& connection) override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-socket"; }

private:
    const double connectTimeout_;
};

} // namespace dmf::socket
