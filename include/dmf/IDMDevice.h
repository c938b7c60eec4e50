#pragma once

#include <memory>

#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

class IDMDevice;

/// Whom a device asks during long work whether the work is still wanted. Thread-safe.
class DMF_EXPORT IDMDeviceHandler {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMDeviceHandler();

    /// True once the device should give up. Asked on the thread that does the work; `device` may be null while the
    /// device is still being made.
    [[nodiscard]] virtual bool isCanceledForDevice(const IDMDevice* device) = 0;
};

/// One device as a transport plug-in sees it. Made from a service's description without waiting for the device;
/// every operation below may be called from any thread.
class DMF_EXPORT IDMDevice {
public:
    /// `initFromInfo`: a device for the description (the keys of a service info: "URI", "connectionType", "params",
    /// ...), or empty when the description does not name one or the device cannot be found. `handler` may be null.
    /// May block for as long as looking for the device takes; ends early when the handler cancels.
    using Factory = std::shared_ptr<IDMDevice>(const dmf::Dictionary& spec, std::shared_ptr<IDMDeviceHandler> handler);
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMDevice();

    /// Whether the device answers now. May block up to the transport's own time-out.
    [[nodiscard]] virtual bool isReachable() = 0;

    /// Asks the device who it is. `parameters` names by its keys what the caller wants to know ("deviceName",
    /// "SerialNumber", ...); empty stands for everything. The result uses the keys of a service info: "vendorName",
    /// "modelName", "deviceName" and "params"; it is empty when nothing could be learned. May block; ends early when
    /// the handler, which may be null, cancels.
    [[nodiscard]] virtual dmf::Dictionary retrieveParameters(const dmf::Dictionary& parameters,
                                                             std::shared_ptr<IDMDeviceHandler> handler) = 0;
};
