#include "UsbDevice.h"

#include <algorithm>

#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include "device/ClaimedInterface.h"
#include "tree/DeviceTree.h"

namespace dmf::usb {

namespace {
constexpr double kLongestAnswer = 5; // seconds

/// What the description asks for. The URI, where there is one, says what was asked for at first.
std::optional<Wanted> wantedBy(const Dictionary& spec)
{
    Dictionary known = spec;
    if (const auto uri = spec.string("URI")) {
        ADMServiceURIParser parser(*uri);
        if (parser.parse())
            known = parser.components();
    }
    const auto* const params = known[kParamsProp].asDictionary();
    Wanted wanted{known.string(kVendorNameProp).value_or(""), known.string(kModelNameProp).value_or(""),
                  params ? params->string(kSerialNumberParam).value_or("") : ""};
    const bool saysNothing = wanted.vendor.empty() && wanted.model.empty() && wanted.serialNumber.empty();
    return saysNothing ? std::nullopt : std::optional(std::move(wanted));
}

std::optional<std::string> deviceIdOf(const AttachedDevice& device, double timeout)
{
    const auto* const configuration = device.configuration();
    const auto* const interface = configuration ? printerInterface(*configuration) : nullptr;
    if (!interface)
        return std::nullopt;
    if (device.kernelDeviceId)
        return device.kernelDeviceId;
    const std::chrono::duration<double> limit(std::clamp(timeout, 0.01, kLongestAnswer));
    const ClaimedInterface claimed(device.node, interface->number,
                                   std::chrono::duration_cast<std::chrono::milliseconds>(limit));
    return claimed.isOpen() ? readDeviceId(claimed.transfer(), device.configurationIndex(), *interface) : std::nullopt;
}

std::optional<AttachedDevice> findDevice(const Wanted& wanted, const std::shared_ptr<IDMDeviceHandler>& handler)
{
    const auto devices = readAllDevices();
    for (const auto& device : devices)
        if (wanted.isServedBy(device, device.kernelDeviceId))
            return device;
    // What is left are those whose names come from their IDs.
    for (const auto& device : devices) {
        if (handler && handler->isCanceledForDevice(nullptr))
            return std::nullopt;
        if (device.kernelDeviceId || device.access.state != Access::State::open)
            continue;
        if (const auto id = deviceIdOf(device, 1); id && wanted.isServedBy(device, id))
            return device;
    }
    return std::nullopt;
}
} // namespace

std::shared_ptr<IDMDevice> UsbDevice::initFromInfo(const Dictionary& spec,
                                                   const std::shared_ptr<IDMDeviceHandler>& handler)
{
    auto wanted = wantedBy(spec);
    auto device = wanted ? findDevice(*wanted, handler) : std::nullopt;
    if (!device)
        return nullptr;
    return std::make_shared<UsbDevice>(spec, std::move(*wanted), std::move(*device));
}

UsbDevice::UsbDevice(const Dictionary& spec, Wanted wanted, AttachedDevice device)
    : ADMDeviceBase(spec, nullptr), wanted_(std::move(wanted)), device_(std::move(device))
{
}

std::optional<AttachedDevice> UsbDevice::find()
{
    AttachedDevice known;
    {
        std::lock_guard guard(lock_);
        known = device_;
    }
    auto now = readDevice(known.place);
    if (!now || !now->isSameAttachment(known))
        now = findDevice(wanted_, nullptr);
    if (now) {
        std::lock_guard guard(lock_);
        device_ = *now;
    }
    return now;
}

bool UsbDevice::control(double timeout, const Use& use)
{
    const auto device = find();
    if (!device)
        return false;
    std::shared_ptr<Line> line;
    {
        std::lock_guard guard(lock_);
        line = line_.lock();
    }
    if (line && line->control([&](const ControlTransfer& transfer, const Choice& choice) {
            use(transfer, *device, choice.interface);
        }))
        return true;
    const auto* const configuration = device->configuration();
    const auto* const interface = configuration ? printerInterface(*configuration) : nullptr;
    if (!interface)
        return false;
    const std::chrono::duration<double> limit(std::clamp(timeout, 0.01, kLongestAnswer));
    const ClaimedInterface claimed(device->node, interface->number,
                                   std::chrono::duration_cast<std::chrono::milliseconds>(limit));
    if (claimed.isOpen())
        use(claimed.transfer(), *device, *interface);
    return claimed.isOpen();
}

std::optional<std::string> UsbDevice::newRetrievedDeviceIDWithTimeout(double timeout)
{
    std::optional<std::string> answer;
    const bool wasAsked = control(
        timeout, [&](const ControlTransfer& transfer, const AttachedDevice& device, const Interface& interface) {
            answer = readDeviceId(transfer, device.configurationIndex(), interface);
        });
    if (wasAsked)
        return answer;
    std::lock_guard guard(lock_);
    return device_.kernelDeviceId; // a driver has the interface, and it has asked
}

bool UsbDevice::isReachable()
{
    return find().has_value();
}

Dictionary UsbDevice::retrieveParameters(const Dictionary&, std::shared_ptr<IDMDeviceHandler>)
{
    const auto id = cachedDeviceID();
    const auto device = find();
    const auto identity = device ? Identity::of(*device, id) : std::nullopt;
    if (!identity)
        return {};
    const auto told = id ? namesIn(*id) : Names();
    const bool hasVendor = told.vendor && isSupportedVendorName(*told.vendor);
    Dictionary params{{std::string(kUSBLocationIDParam), device->place}};
    params.set(kSerialNumberParam, told.serialNumber.value_or(wanted_.serialNumber.empty() ? identity->serialNumber
                                                                                           : wanted_.serialNumber));
    return {{std::string(kVendorNameProp), hasVendor ? *told.vendor : identity->vendor},
            {std::string(kModelNameProp), told.model.value_or(identity->model)},
            {std::string(kDeviceNameProp), told.description.value_or(told.model.value_or(identity->model))},
            {std::string(kParamsProp), std::move(params)}};
}

std::optional<std::uint8_t> UsbDevice::portStatus()
{
    std::optional<std::uint8_t> status;
    control(1, [&](const ControlTransfer& transfer, const AttachedDevice&, const Interface& interface) {
        status = readPortStatus(transfer, interface);
    });
    return status;
}

bool UsbDevice::softReset()
{
    bool isDone = false;
    control(1, [&](const ControlTransfer& transfer, const AttachedDevice&, const Interface& interface) {
        isDone = resetPort(transfer, interface);
    });
    return isDone;
}

void UsbDevice::setLine(const std::shared_ptr<Line>& line)
{
    std::lock_guard guard(lock_);
    line_ = line;
}

} // namespace dmf::usb
