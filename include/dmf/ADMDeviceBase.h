#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/IDMDevice.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

class ADMCoreModelInfo;

/// Base of the devices that plug-ins supply: it learns vendor, model, name and serial number from the IEEE 1284 device
/// ID that a subclass retrieves. The device ID is asked for when it is first needed and then kept; while none comes, it
/// is asked for again by the next call. Thread-safe as far as the subclass's retrieval is.
class DMF_EXPORT ADMDeviceBase : public IDMDevice {
public:
    /// `initFromInfo`: keeps nothing of the description; a subclass keeps what it needs.
    ADMDeviceBase(const dmf::Dictionary& spec, const std::shared_ptr<IDMDeviceHandler>& handler);
    ~ADMDeviceBase() override;
    ADMDeviceBase(const ADMDeviceBase&) = delete;
    ADMDeviceBase& operator=(const ADMDeviceBase&) = delete;

    /// Asks the device for its device ID; nothing when it does not answer within `timeout` seconds. Left to
    /// subclasses; this one throws dmf::UnrecognizedOperation.
    [[nodiscard]] virtual std::optional<std::string> newRetrievedDeviceIDWithTimeout(double timeout);
    /// Left to subclasses; this one throws dmf::UnrecognizedOperation.
    [[nodiscard]] dmf::Dictionary retrieveParameters(const dmf::Dictionary& parameters,
                                                     std::shared_ptr<IDMDeviceHandler> handler) override;

    /// The kept device ID, or the one that the device gives within 5 seconds.
    [[nodiscard]] std::optional<std::string> cachedDeviceID();
    /// Each may block as `cachedDeviceID` does, and gives nothing when the device ID does not tell.
    [[nodiscard]] std::optional<std::string> vendor();
    [[nodiscard]] std::optional<std::string> model();
    [[nodiscard]] std::optional<std::string> serialNumber();
    /// The description. When the device ID has none, the model, but only if `model` was asked before: the name alone
    /// does not look for it.
    [[nodiscard]] std::optional<std::string> name();
    /// What the model database says of the model; empty while the model is unknown.
    [[nodiscard]] std::shared_ptr<ADMCoreModelInfo> modelInfo();
    /// Whether the device gives a device ID; waits without a limit of its own.
    [[nodiscard]] bool isReachable() override;

    /// Whether devices of that vendor are served: those that the library was configured with ("QL" and "Tessaly-Corvan"
    /// unless a deployment names others), in any letter case.
    [[nodiscard]] static bool isSupportedVendorName(std::optional<std::string_view> name);

private:
    [[nodiscard]] std::optional<std::string> field(std::optional<std::string> ADMDeviceBase::*kept,
                                                   std::string_view longKey, std::string_view shortKey);

    std::mutex lock_; // guards all below; never held while the device is asked
    std::shared_ptr<ADMCoreModelInfo> modelInfo_;
    std::optional<std::string> cachedDeviceID_;
    std::optional<std::string> name_;
    std::optional<std::string> vendor_;
    std::optional<std::string> model_;
    std::optional<std::string> serialNumber_;
};
