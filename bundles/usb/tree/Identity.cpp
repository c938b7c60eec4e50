#include "Identity.h"

#include <algorithm>

#include <dmf/ADMDeviceBase.h>
#include <dmf/ADMServiceURI.h>
#include <dmf/platform/Unicode.h>

namespace dmf::usb {

namespace {
constexpr const char* kPortPrefix = "port-";

/// Texts that a URI gives back as they are: what would end the part that they stand in is replaced.
std::string readable(std::string text, char end)
{
    std::replace(text.begin(), text.end(), end, '_');
    return text;
}

bool isAccepted(const std::optional<std::string>& vendor)
{
    return vendor && ADMDeviceBase::isSupportedVendorName(*vendor);
}
} // namespace

std::optional<Identity> Identity::of(const AttachedDevice& device, const std::optional<std::string>& deviceId)
{
    const auto told = deviceId ? namesIn(*deviceId) : Names();
    const auto& vendor = isAccepted(device.names.vendor) ? device.names.vendor : told.vendor;
    const auto& model = device.names.model ? device.names.model : told.model;
    if (!isAccepted(vendor) || !model)
        return std::nullopt;
    Identity identity;
    identity.vendor = *vendor;
    identity.model = readable(*model, '?');
    if (!device.names.serialNumber)
        return identity.atPort(device.place);
    identity.serialNumber = readable(*device.names.serialNumber, '&');
    return identity;
}

Identity Identity::atPort(const std::string& place) const
{
    return {vendor, model, kPortPrefix + place, true};
}

std::optional<std::string> Identity::uri() const
{
    const auto made = ADMServiceURI::USBServiceURIWithProductName(model, vendor, serialNumber);
    return made ? std::optional(made->stringRepresentation()) : std::nullopt;
}

bool Wanted::isServedBy(const AttachedDevice& device, const std::optional<std::string>& deviceId) const
{
    const auto identity = Identity::of(device, deviceId);
    if (!identity)
        return false;
    const auto told = deviceId ? namesIn(*deviceId) : Names();
    // Whoever gives no vendor or model does not care for it.
    const auto isName = [](const std::string& wanted, const std::string& own, const std::optional<std::string>& other) {
        return wanted.empty() || equalIgnoringCase(wanted, own) || (other && equalIgnoringCase(wanted, *other));
    };
    if (!isName(vendor, identity->vendor, told.vendor) || !isName(model, identity->model, told.model))
        return false;
    return serialNumber.empty() || serialNumber == identity->serialNumber ||
           serialNumber == identity->atPort(device.place).serialNumber || serialNumber == told.serialNumber;
}

} // namespace dmf::usb
