#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace dmf::tool {

/// A raw-socket device on the loopback interface, for trying programs on. Everything happens in `run`, on its thread.
class LoopbackDevice {
public:
    struct Behaviour {
        std::uint16_t port = 0;                 ///< 0: any free one
        std::string answer;                     ///< sent once to each client, as soon as its first bytes have come
        std::optional<std::uint64_t> dropAfter; ///< breaks the connection after that many bytes
        bool neverRead = false;                 ///< accepts clients and reads nothing
        std::optional<std::uint64_t> bytesPerSecond;
    };
    /// What becomes of a client, for people.
    using Report = std::function<void(const std::string& text)>;

    /// Listens from now on. Throws std::system_error when it cannot.
    LoopbackDevice(Behaviour behaviour, Report report);
    ~LoopbackDevice();
    LoopbackDevice(const LoopbackDevice&) = delete;
    LoopbackDevice& operator=(const LoopbackDevice&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// Serves clients until the descriptor turns readable.
    void run(int stopDescriptor);

private:
    struct Client;
    struct State;
    const std::unique_ptr<State> state_;
    std::uint16_t port_ = 0;
};

} // namespace dmf::tool
