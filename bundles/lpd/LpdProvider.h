#pragma once

#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/TransportProvider.h>

namespace dmf::lpd {

/// Makes each opening of a channel one job in the queue of its LpdDevice.
class LpdProvider final : public TransportProvider {
public:
    using TransportProvider::TransportProvider;

protected:
    /// Takes fifteen seconds at most.
    Status connect(std::shared_ptr<TransportConnection>& connection) override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-lpd"; }
};

/// A channel whose opening begins a job. The parameter "DocumentLength" of the service, a number of bytes, has the
/// document sent as it is written.
class LpdChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
};

} // namespace dmf::lpd
