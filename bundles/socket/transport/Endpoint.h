#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/socket.h>

#include <dmf/platform/Value.h>

namespace dmf::socket {

using Clock = std::chrono::steady_clock;

/// How long a wait may last before the client is asked again whether he still wants it.
inline constexpr std::chrono::milliseconds kCancelInterval{90};

/// Where a device listens: a host name, addresses, or both, and a port.
struct Endpoint {
    std::string hostName;
    std::vector<std::string> addresses;
    std::uint16_t port = 9100;

    /// Reads "HostName", "IPAddress", "AllIPAddresses" and "IPPort" (9100 when absent) of a service's connection
    /// parameters. Nothing when they name no host or no usable port.
    [[nodiscard]] static std::optional<Endpoint> fromParameters(const Dictionary& parameters);
};

/// One address with its port, ready to connect to.
struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    [[nodiscard]] int family() const noexcept { return storage.ss_family; }
    /// "192.168.1.20", "fe80::1%eth0".
    [[nodiscard]] std::string text() const;
    friend bool operator==(const Address& left, const Address& right) noexcept;
};

enum class Outcome { done, refused, timedOut, cancelled };

/// Asked about ten times a second while something is waited for; true ends the wait.
using CancelQuestion = std::function<bool()>;

/// Gives the addresses of a host name, at the deadline at the latest.
using NameQuestion = std::function<Outcome(const std::string& name, std::uint16_t port, Clock::time_point deadline,
                                           const CancelQuestion& isCancelled, std::vector<Address>& found)>;
[[nodiscard]] NameQuestion systemNames();

/// Finds the addresses of an endpoint, in the order in which they are to be tried: the two families take turns, so that
/// one that leads nowhere delays the other by one attempt only. Addresses in numbers need no waiting; where there are
/// some, the name is waited for only for a part of the time, at most a second. A name is looked up on a thread of its
/// own, since that cannot be cancelled; when the wait ends early the thread goes on by itself, and a later question for
/// the same name shares its answer.
[[nodiscard]] Outcome findAddresses(const Endpoint& endpoint, Clock::time_point deadline,
                                    const CancelQuestion& isCancelled, std::vector<Address>& found,
                                    const NameQuestion& askForName = systemNames());

} // namespace dmf::socket
