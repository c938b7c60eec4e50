#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMBaseDiscovery;
class ADMServiceInfo;

namespace dmf {

/// The connection parameter that holds a device's UUID (RFC 4122), as discovery back ends that know it give it.
inline constexpr std::string_view kDeviceUUIDParam = "UUID";
/// The connection parameter that says what "SerialNumber" is when it is no serial number: "port" where a device that
/// tells none is told from its like by the port that it is plugged into.
inline constexpr std::string_view kSerialNumberKindParam = "SerialNumberKind";

/// One thing that tells one device from all others.
struct DeviceEvidence {
    enum class Kind : std::uint8_t {
        serialNumber, ///< with vendor and model: "ql/aurora 450n/SN77"
        macAddress,   ///< "00:11:22:33:44:55"
        uuid,         ///< "e3248000-80ce-11db-8000-30055c773bcf"
    };
    Kind kind = Kind::serialNumber;
    std::string text; ///< in one normal form, so that equal texts are equal evidence
    friend auto operator<=>(const DeviceEvidence&, const DeviceEvidence&) = default;
};

/// One way to reach a device: a service of it that was found.
struct DeviceWay {
    std::shared_ptr<ADMServiceInfo> service;
    std::string uri;
    std::string connectionType;
    std::string serviceName;              ///< of the channel that it serves; empty when the service does not say
    std::vector<DeviceEvidence> evidence; ///< what it says of its device, sorted; empty where it says nothing
};

/// One physical device, with all the ways to reach it that are there now.
struct Device {
    /// One name a device: it follows from what its services say of it alone, so it is the same after a restart, in
    /// whatever order they are found, and wherever the device is plugged in. Of the serial number where one is known,
    /// else of the MAC address, else of the UUID; a device that tells nothing of that is named by its (smallest) URI.
    std::string name;
    std::string vendor, model, serialNumber; ///< empty where no service says it
    std::vector<DeviceWay> ways;             ///< sorted by URI; never empty
    /// Why its identity is to be doubted, in plain English: another device with the same serial number, say. Empty
    /// when there is no doubt.
    std::string suspicion;
    /// What two or more of its ways have in common: why they are taken for one device. Empty for one way.
    [[nodiscard]] DMF_EXPORT std::vector<DeviceEvidence> sharedEvidence() const;
};

class DeviceList;

/// What a list tells its client. Each may be empty. Owned by the client; the list holds it weakly. They are called on
/// the run loop in which the list is scheduled, in the order in which things happen, each device's once for each
/// change; the list may be stopped, started and released from inside them.
struct DeviceListDelegate {
    std::function<void(DeviceList& list, const Device& device)> deviceAdded;
    /// A way came or went, or what is known of the device changed. `earlierName` is its name until now: better
    /// evidence gives a better name.
    std::function<void(DeviceList& list, const Device& device, const std::string& earlierName)> deviceChanged;
    /// `device` is as it was last told. A device that turns out to be another that is listed is told as removed, and
    /// the other as changed.
    std::function<void(DeviceList& list, const Device& device)> deviceRemoved;
};

/// A live list of devices: the services that a discovery finds over all connection types, brought together by device.
///
/// Services are taken for one device on evidence only: the same UUID, the same MAC address, or the same serial number
/// with the same vendor and model. Names and addresses never count, nor do serial numbers that many devices share
/// ("0000", "unknown") or that stand for a port. When a service goes, what only it held together comes apart again.
///
/// Asks no device anything and never blocks. Owned by std::shared_ptr; releasing it ends the looking without a further
/// report. Thread-safe; reports are run-loop-bound as those of ADMDiscovery are.
class DMF_EXPORT DeviceList : public std::enable_shared_from_this<DeviceList> {
public:
    /// Which of two ways is to be preferred for a channel: the smaller number.
    using Order = std::function<int(const DeviceWay& way, std::string_view channelName)>;
    struct Choice {
        DeviceWay way;
        std::string reason; ///< in plain English
    };

    /// A list of the devices that offer services for some of the channels ("Print", "Scan"). Empty without a name.
    [[nodiscard]] static std::shared_ptr<DeviceList> withChannelNames(const std::vector<std::string>& channelNames);
    ~DeviceList();
    DeviceList(const DeviceList&) = delete;
    DeviceList& operator=(const DeviceList&) = delete;

    void setDelegate(const std::shared_ptr<DeviceListDelegate>& delegate);
    /// As ADMDiscovery's.
    void scheduleInRunLoop(std::shared_ptr<RunLoop> runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode);

    /// Begins to look, over the given connection types ("USB", "IP", ...; without any, over the default ones). The list
    /// is empty then: what a run before left in it is told as removed first. False, and nothing happens, while it looks
    /// already or is scheduled nowhere.
    bool start(const std::vector<std::string>& connectionTypes = {});
    /// Ends the looking; the devices stay listed, and nothing more is told. As ADMDiscovery::stop it waits some seconds
    /// at most.
    void stop();

    /// The devices that are listed now, sorted by name.
    [[nodiscard]] std::vector<Device> devices() const;
    /// The device with that name; nothing when none has it.
    [[nodiscard]] std::optional<Device> device(std::string_view name) const;

    /// The best way to a channel of the device: of those that serve the channel, or do not say what they serve, the
    /// first by the order, and of equal ones that with the smallest URI. Nothing when there is none.
    [[nodiscard]] std::optional<Choice> bestWay(const Device& device, std::string_view channelName) const;
    /// Replaces the order. An empty one brings back the default: USB, IP, Rendezvous, IPP, LPD, others.
    void setOrder(Order order);

    /// The discovery that looks: for its filter, its parameters and what became of its sources. Its delegate and its
    /// start belong to the list.
    [[nodiscard]] const std::shared_ptr<ADMBaseDiscovery>& discovery() const noexcept;

private:
    struct Private;
    explicit DeviceList(std::shared_ptr<ADMBaseDiscovery> discovery);
    const std::unique_ptr<Private> private_;
};

} // namespace dmf
