#pragma once

#include <memory>
#include <string>

#include "transport/NetworkDevice.h"

namespace dmf::lpd {

/// What `retrieveParameters` gives the queue's state under, in the server's own words.
inline constexpr std::string_view kQueueStateParam = "QueueState";
/// The queue of a universal URI; of a standard one it is the path.
inline constexpr std::string_view kQueueParam = "Queue";

/// A queue of a print server that speaks RFC 1179. Thread-safe.
class LpdDevice final : public socket::NetworkDevice {
public:
    /// A device that was just reached: the server has told the state of the queue. Empty when the description names no
    /// host, nobody answers within five seconds, or `handler` cancels. A server that does not know the queue is
    /// reached all the same: many say so only when a job comes.
    [[nodiscard]] static std::shared_ptr<IDMDevice> initFromInfo(const Dictionary& spec,
                                                                 const std::shared_ptr<IDMDeviceHandler>& handler);
    LpdDevice(socket::Endpoint endpoint, const Dictionary& spec, std::string address, std::string queue);

    [[nodiscard]] const std::string& queue() const noexcept { return queue_; }

    /// What is known of the device, and in "params" as "QueueState" the state of the queue, which is asked for, two
    /// seconds at most; it is missing when the server does not tell.
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary& parameters,
                                                std::shared_ptr<IDMDeviceHandler> handler) override;

private:
    const std::string queue_;
};

/// The queue that a service's description names: the parameter "Queue", else the first part of the URI's path, "lp"
/// when there is none.
[[nodiscard]] std::string queueFrom(const Dictionary& spec);

} // namespace dmf::lpd
