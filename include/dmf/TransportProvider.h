#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include <dmf/ADMConnectionProvider.h>
#include <dmf/TransportConnection.h>
#include <dmf/platform/Export.h>

namespace dmf {

/// A connection provider with all that transports have in common: it moves requests over a TransportConnection, on the
/// caller's thread or on the worker, keeps time-outs, asks the client about ten times a second whether to cancel, stops
/// reading ahead while 16 MB wait for the client's run loop, and lets others have the lock. A transport supplies two
/// things, how to connect and the connection:
///
///     class UsbConnection final : public dmf::TransportConnection { ... };
///
///     class UsbProvider final : public dmf::TransportProvider {
///     public:
///         using TransportProvider::TransportProvider;
///     protected:
///         Status connect(std::shared_ptr<dmf::TransportConnection>& connection) override
///         {
///             const auto usb = std::dynamic_pointer_cast<UsbDevice>(device());
///             if (!usb)
///                 return dmf::ProviderStatus::invalidParameter;
///             const auto claimed = usb->claim([this] { return isGivenUp(); });
///             if (!claimed)
///                 return dmf::ProviderStatus::failed;
///             connection = std::make_shared<UsbConnection>(claimed);
///             setMaxPacketSizes(16384, 16384);
///             return dmf::ProviderStatus::success;
///         }
///     };
///
/// The channel's `createAndOpenProviderWithTimeout` then is
///
///         const auto made = ADMConnectionProvider::initWithParent<UsbProvider>(shared_from_this(), nullptr,
///                                                                              serviceInfo()->device());
///         if (!made)
///             return dmf::ProviderStatus::invalidParameter;
///         setProvider(made);
///         return made->open();
///
/// Statuses of its own: `timedOut`, `cancelled` when the client says so, `notOpen` when the connection was ended
/// meanwhile, whatever the transport says of it. Thread-safe.
class DMF_EXPORT TransportProvider : public ADMConnectionProvider {
public:
    /// Through `initWithParent`, as all providers.
    TransportProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                      std::shared_ptr<IDMDevice> device);
    ~TransportProvider() override;
    [[nodiscard]] bool isOpen() final;
    void signalForStop() final;

protected:
    using Clock = TransportConnection::Clock;

    /// Connects: success, with `connection` set and the packet sizes, or the status that says why not. Called with the
    /// lock held, so nobody but `close` gets in; what waits here asks `isGivenUp` about ten times a second and ends
    /// with `cancelled` when it says so.
    [[nodiscard]] virtual Status connect(std::shared_ptr<TransportConnection>& connection) = 0;
    /// Whether the channel has been closed meanwhile, or has gone. Never waits, asks nobody.
    [[nodiscard]] bool isGivenUp() const;
    /// The present connection, or null. Needs no lock.
    [[nodiscard]] std::shared_ptr<TransportConnection> connection() const;

    Status performOpen() final;
    Status performClose() final;
    Status performRead(ADMTransferTicket& ticket) final;
    Status performWrite(ADMTransferTicket& ticket) final;
    Status performFinishWriting(ADMTransferTicket& ticket) final;
    void requestArrived(ADMTransferTicket& ticket) final;
    std::uintptr_t run() final;

private:
    enum class Direction { read, write };
    using Attempt = std::optional<Status> (*)(ADMTransferTicket&, TransportConnection&);

    [[nodiscard]] static std::optional<Status> advanceRead(ADMTransferTicket& ticket, TransportConnection& connection);
    [[nodiscard]] static std::optional<Status> advanceWrite(ADMTransferTicket& ticket, TransportConnection& connection);
    [[nodiscard]] static Status withdrawn(ADMTransferTicket& ticket, TransportConnection& connection, Status status);
    [[nodiscard]] static std::optional<Status> finish(ADMTransferTicket& ticket, TransportConnection& connection);
    Status perform(ADMTransferTicket& ticket, Direction direction, Attempt attempt);
    [[nodiscard]] ADMTransferTicket* ticketOf(Direction direction) noexcept;
    [[nodiscard]] bool shouldCancel(Direction direction);
    [[nodiscard]] Status cancelledStatus() const;

    void serve(Direction direction);
    void sleep(Lock& held, TransportConnection& connection);
    [[nodiscard]] bool mayReadAhead() const;
    void askWhetherToCancel(Lock& held);
    void setConnection(std::shared_ptr<TransportConnection> connection);

    mutable std::mutex connectionLock_;               // taken after lock(), for as long as the pointer is copied
    std::shared_ptr<TransportConnection> connection_; // changed with lock() and connectionLock_ held, read with either
    std::atomic<bool> lastWriteIsWhole_{true};        // false from the begin of a write to its success
    int servedOnTheSpot_ = 0;                         // this and the following guarded by lock()
    Clock::time_point askAgain_{};
};

} // namespace dmf
