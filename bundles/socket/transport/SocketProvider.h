#pragma once

#include <memory>
#include <optional>

#include <dmf/ADMConnectionProvider.h>

#include "Connection.h"
#include "NetworkDevice.h"

namespace dmf::socket {

/// Moves a channel's bytes over one TCP connection.
///
/// Statuses: `peerEnded` when the device sends no more, after all bytes that did arrive; `cancelled` when the client
/// gives up; `failed` when the connection is refused, reset or lost.
class SocketProvider final : public ADMConnectionProvider {
public:
    /// Connecting takes `connectTimeout` seconds, but never more than fifteen.
    SocketProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                   std::shared_ptr<IDMDevice> device, double connectTimeout);

    [[nodiscard]] bool isOpen() override;
    void signalForStop() override;

protected:
    Status performOpen() override;
    Status performClose() override;
    Status performRead(ADMTransferTicket& ticket) override;
    Status performWrite(ADMTransferTicket& ticket) override;
    void requestArrived(ADMTransferTicket& ticket) override;
    std::uintptr_t run() override;
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-socket"; }

private:
    enum class Direction { read, write };

    [[nodiscard]] std::shared_ptr<Connection> connectionFor(const ADMTransferTicket& ticket);
    [[nodiscard]] ADMTransferTicket* ticketOf(Direction direction) noexcept
    {
        return direction == Direction::read ? readTicket() : writeTicket();
    }
    Status perform(ADMTransferTicket& ticket, Direction direction);
    [[nodiscard]] std::optional<Status> advance(ADMTransferTicket& ticket, Direction direction, Connection& connection);
    [[nodiscard]] bool shouldCancel(Direction direction);
    [[nodiscard]] Status cancelledStatus() const;

    void serve(Direction direction);
    void serveAll();
    [[nodiscard]] bool mayReadAhead() const;
    void askWhetherToCancel(Lock& held);

    const double connectTimeout_;
    Signal wake_;
    std::shared_ptr<Connection> connection_; // this and the following guarded by lock()
    NetworkDevice::Use use_;
    int servedOnTheSpot_ = 0;
    Clock::time_point askAgain_{};
};

} // namespace dmf::socket
