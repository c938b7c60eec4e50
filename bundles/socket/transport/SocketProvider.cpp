#include "SocketProvider.h"

#include <algorithm>

#include "Connection.h"
#include "NetworkDevice.h"

namespace dmf::socket {

namespace {
constexpr std::uint32_t kPacketSize = 64 * 1024;
constexpr double kConnectLimit = 15;
} // namespace

SocketProvider::SocketProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                               std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device,
                               double connectTimeout)
    : TransportProvider(parent, std::move(info), std::move(device)), connectTimeout_(connectTimeout)
{
}

ADMConnectionProvider::Status SocketProvider::connect(std::shared_ptr<TransportConnection>& connection)
{
    const auto network = std::dynamic_pointer_cast<NetworkDevice>(device());
    if (!network)
        return ProviderStatus::invalidParameter;
    const std::chrono::duration<double> limit(std::clamp(connectTimeout_, 0.0, kConnectLimit));
    auto connected = network->connect(Clock::now() + std::chrono::duration_cast<Clock::duration>(limit),
                                      [this] { return isGivenUp(); });
    switch (connected.outcome) {
    case Outcome::refused: return ProviderStatus::failed;
    case Outcome::timedOut: return ProviderStatus::timedOut;
    case Outcome::cancelled: return ProviderStatus::cancelled;
    case Outcome::done: break;
    }
    connection = Connection::over(std::move(connected.socket), network->beginUse());
    setMaxPacketSizes(kPacketSize, kPacketSize);
    return ProviderStatus::success; // without a connection it fails all the same
}

} // namespace dmf::socket
