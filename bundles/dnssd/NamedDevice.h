#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Resolver.h"
#include "ServiceName.h"
#include "transport/NetworkDevice.h"

namespace dmf::dnssd {

/// A device that a DNS-SD service name leads to. The name is resolved anew for every connection, since addresses and
/// ports change. Thread-safe.
class NamedDevice final : public socket::NetworkDevice {
public:
    /// A device that was just found and reached: resolves and connects. Empty when the description names no
    /// DNS-SD service, when that is not done within five seconds for each of the two, or when `handler` cancels.
    [[nodiscard]] static std::shared_ptr<IDMDevice> initFromInfo(const Dictionary& spec,
                                                                 const std::shared_ptr<IDMDeviceHandler>& handler);
    NamedDevice(ServiceName service, Resolved resolved, const Dictionary& spec, std::string address);

    [[nodiscard]] socket::Outcome findEndpoint(socket::Clock::time_point deadline,
                                               const socket::CancelQuestion& isCancelled,
                                               socket::Endpoint& found) override;
    /// What the service told of itself when the device was found, else what the description knows.
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary& parameters,
                                                std::shared_ptr<IDMDeviceHandler> handler) override;

private:
    const ServiceName service_;
    const std::optional<std::string> serialNumber_;
};

} // namespace dmf::dnssd
