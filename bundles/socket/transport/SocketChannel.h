#pragma once

#include <dmf/ADMDuplexDataChannelBase.h>

namespace dmf::socket {

/// A data channel over TCP. Its device must be a NetworkDevice. The channel's name plays no part: the devices offer one
/// service a port.
class SocketChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
};

} // namespace dmf::socket
