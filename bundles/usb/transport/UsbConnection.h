#pragma once

#include <memory>

#include <dmf/TransportConnection.h>

#include "Line.h"

namespace dmf::usb {

/// One connection to an interface. Statuses: `peerEnded` for reads of a device that sends nothing, at once; `failed`
/// when the device is unplugged, or halts a transfer a second time after its halt was cleared.
class UsbConnection final : public TransportConnection {
public:
    explicit UsbConnection(std::shared_ptr<Line> line) : line_(std::move(line)) {}
    ~UsbConnection() override { end(); }

    [[nodiscard]] Progress read(std::span<std::uint8_t> space) override { return line_->receive(space); }
    [[nodiscard]] Progress write(std::span<const std::uint8_t> bytes) override { return line_->send(bytes); }
    [[nodiscard]] std::uint32_t withdrawWrite() noexcept override;
    void wait(const Wait& wait) override { line_->wait(wait); }
    void wake() noexcept override { line_->wake(); }

protected:
    void disconnect() noexcept override;

private:
    const std::shared_ptr<Line> line_;
};

} // namespace dmf::usb
