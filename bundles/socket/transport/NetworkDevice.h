#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <dmf/IDMDevice.h>

#include "Connect.h"
#include "Endpoint.h"
#include "HeldConnection.h"

namespace dmf::socket {

/// A device that listens at an endpoint. Who it is comes from its description, whether it is there from a connection.
/// Thread-safe.
class NetworkDevice : public IDMDevice {
public:
    /// A device that has just been reached: connects once, and keeps the connection for the channel that opens next.
    /// Empty when nobody answers within five seconds or `handler` cancels.
    [[nodiscard]] static std::shared_ptr<NetworkDevice> reach(Endpoint endpoint, const Dictionary& spec,
                                                              const std::shared_ptr<IDMDeviceHandler>& handler);
    NetworkDevice(Endpoint endpoint, const Dictionary& spec, std::string address);

    [[nodiscard]] const Endpoint& endpoint() const noexcept { return endpoint_; }
    /// Where the device is to be reached just now. A device that is found by a name that may lead elsewhere tomorrow
    /// overrides it; it may wait until the deadline.
    [[nodiscard]] virtual Outcome findEndpoint(Clock::time_point deadline, const CancelQuestion& isCancelled,
                                               Endpoint& found);
    /// A connection for a channel: the one that has just proved the device reachable, else a new one to where the
    /// device is just now.
    [[nodiscard]] Connected connect(Clock::time_point deadline, const CancelQuestion& isCancelled);
    /// Keeps a connection that has just been made for the next `connect`, two seconds at most.
    void keep(FileDescriptor socket) { held_.keep(std::move(socket)); }

    /// True without asking while a channel to the device is open or a connection is kept for one, since many devices
    /// take one connection only; otherwise connects, for two seconds at most, and keeps the connection.
    [[nodiscard]] bool isReachable() override;
    /// The names that the description knows, and as "params" where the device was found.
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary& parameters,
                                                std::shared_ptr<IDMDeviceHandler> handler) override;

    /// Kept by channels while they are connected.
    using Use = std::shared_ptr<void>;
    [[nodiscard]] Use beginUse();

private:
    [[nodiscard]] Connected connectAnew(Clock::time_point deadline, const CancelQuestion& isCancelled);

    HeldConnection held_;
    const Endpoint endpoint_;
    Dictionary identity_; // not changed once made
    std::mutex lock_;
    std::weak_ptr<void> use_; // guarded by lock_
};

} // namespace dmf::socket
