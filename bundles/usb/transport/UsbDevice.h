#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <dmf/ADMDeviceBase.h>

#include "Line.h"
#include "tree/Identity.h"

namespace dmf::usb {

/// A device on the USB. It is looked for anew for every use, since it may have been plugged in elsewhere meanwhile.
/// Thread-safe.
class UsbDevice final : public ADMDeviceBase {
public:
    /// Empty when no device that is there now is the one of the description. Asks those for their IDs that cannot be
    /// told otherwise, for a second each.
    [[nodiscard]] static std::shared_ptr<IDMDevice> initFromInfo(const Dictionary& spec,
                                                                 const std::shared_ptr<IDMDeviceHandler>& handler);
    UsbDevice(const Dictionary& spec, Wanted wanted, AttachedDevice device);

    /// The device as it is now; nothing when it is not there.
    [[nodiscard]] std::optional<AttachedDevice> find();

    [[nodiscard]] std::optional<std::string> newRetrievedDeviceIDWithTimeout(double timeout) override;
    /// Whether it is plugged in.
    [[nodiscard]] bool isReachable() override;
    [[nodiscard]] Dictionary retrieveParameters(const Dictionary& parameters,
                                                std::shared_ptr<IDMDeviceHandler> handler) override;

    /// See readPortStatus and resetPort. They go over the open channel if there is one in this process, and need the
    /// interface free otherwise.
    [[nodiscard]] std::optional<std::uint8_t> portStatus();
    [[nodiscard]] bool softReset();

    /// The line that a channel uses, for as long as it does.
    void setLine(const std::shared_ptr<Line>& line);

private:
    using Use =
        std::function<void(const ControlTransfer& transfer, const AttachedDevice& device, const Interface& interface)>;
    bool control(double timeout, const Use& use);

    const Wanted wanted_;
    std::mutex lock_;
    AttachedDevice device_; // this and the following guarded by lock_
    std::weak_ptr<Line> line_;
};

} // namespace dmf::usb
