#include <dmf/TransportConnection.h>

namespace dmf {

TransportConnection::TransportConnection() = default;

TransportConnection::~TransportConnection() = default;

std::uint32_t TransportConnection::withdrawWrite() noexcept
{
    return 0;
}

std::optional<TransportConnection::Status> TransportConnection::finishWriting()
{
    return ProviderStatus::success;
}

void TransportConnection::end(bool documentIsWhole) noexcept
{
    if (isEnded_.exchange(true))
        return;
    documentIsWhole_ = documentIsWhole;
    disconnect();
}

} // namespace dmf
