#include "Claim.h"

#include <libusb.h>

#include <algorithm>

#include "tree/DeviceTree.h"

namespace dmf::usb {

namespace {
constexpr unsigned kControlLimit = 1000; // milliseconds
constexpr const char* kPrinterDriver = "usblp";

Claim::Failure failureOf(int error)
{
    switch (error) {
    case 0: return Claim::Failure::none;
    case LIBUSB_ERROR_ACCESS: return Claim::Failure::notPermitted;
    case LIBUSB_ERROR_BUSY: return Claim::Failure::busy;
    case LIBUSB_ERROR_NO_DEVICE:
    case LIBUSB_ERROR_NOT_FOUND: return Claim::Failure::gone;
    default: return Claim::Failure::failed;
    }
}

std::string reasonOf(Claim::Failure failure, int error, const AttachedDevice& device, int interface)
{
    using Failure = Claim::Failure;
    switch (failure) {
    case Failure::none: break;
    case Failure::gone: return "the device is not there any more";
    case Failure::notPermitted: return Access{Access::State::noPermission, {}}.explanation(device.node);
    case Failure::failed: return std::string("the device cannot be opened: ") + libusb_error_name(error);
    case Failure::busy: {
        const auto now = readDevice(device.place).value_or(device);
        const auto driver = now.driverOf(interface);
        if (!driver.empty() && driver != kProgramDriver)
            return "the device is busy: the kernel's driver " + driver + " has it";
        bool isOurs = false;
        const auto holder = holderOf(device.node, isOurs);
        return "the device is busy: " + (holder.empty() ? std::string("another program") : holder) + " has it";
    }
    }
    return {};
}
} // namespace

Claim::Result Claim::make(const AttachedDevice& device, const Choice& choice)
{
    std::unique_ptr<Claim> claim(new Claim(choice));
    int error = claim->open(device);
    if (error == 0)
        error = claim->take(device);
    if (error == 0)
        error = claim->selectAlternate(device);
    if (error == 0)
        return {std::move(claim), Failure::none, {}};
    const auto failure = failureOf(error);
    claim = nullptr; // who has the device is asked without ourselves
    return {nullptr, failure, reasonOf(failure, error, device, choice.interface.number)};
}

int Claim::open(const AttachedDevice& device)
{
    if (const int error = libusb_init(&context_); error != 0) {
        context_ = nullptr;
        return error;
    }
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context_, &list);
    if (count < 0)
        return static_cast<int>(count);
    const auto* const found = std::find_if(list, list + count, [&](libusb_device* each) {
        return libusb_get_bus_number(each) == device.bus && libusb_get_device_address(each) == device.address;
    });
    const int error = found != list + count ? libusb_open(*found, &handle_) : LIBUSB_ERROR_NO_DEVICE;
    libusb_free_device_list(list, 1);
    if (error != 0)
        handle_ = nullptr;
    return error;
}

int Claim::take(const AttachedDevice& device)
{
    const int number = choice_.interface.number;
    // A device without a configuration has no interfaces yet; one that has is not touched, for it would be reset.
    if (device.activeConfiguration == 0 && !device.descriptors.configurations.empty())
        if (const int error = libusb_set_configuration(handle_, device.descriptors.configurations.front().value))
            return error;
    // Only that driver: it has nothing that could be lost. Nobody takes a disk away from under a file system.
    const auto now = readDevice(device.place);
    if (now && now->driverOf(number) == kPrinterDriver) {
        const int error = libusb_detach_kernel_driver(handle_, number);
        hasDetached_ = error == 0;
        if (error != 0 && error != LIBUSB_ERROR_NOT_FOUND)
            return error;
    }
    const int error = libusb_claim_interface(handle_, number);
    isClaimed_ = error == 0;
    return error;
}

/// Asked for only where there is a choice: some devices take it badly.
int Claim::selectAlternate(const AttachedDevice& device)
{
    const auto* const configuration = device.configuration();
    const auto settings =
        configuration ? std::count_if(configuration->interfaces.begin(), configuration->interfaces.end(),
                                      [&](const Interface& each) { return each.number == choice_.interface.number; })
                      : 0;
    return settings > 1
               ? libusb_set_interface_alt_setting(handle_, choice_.interface.number, choice_.interface.alternate)
               : 0;
}

Claim::~Claim()
{
    if (isClaimed_)
        (void)libusb_release_interface(handle_, choice_.interface.number);
    if (hasDetached_ && !choice_.quirks.keepsKernelDriverOff)
        (void)libusb_attach_kernel_driver(handle_, choice_.interface.number);
    if (handle_)
        libusb_close(handle_);
    if (context_)
        libusb_exit(context_);
}

ControlTransfer Claim::control() const
{
    return [this](const ControlRequest& request, std::span<std::uint8_t> data) -> std::optional<std::size_t> {
        const int count = libusb_control_transfer(handle_, request.type, request.request, request.value, request.index,
                                                  data.data(), static_cast<std::uint16_t>(data.size()), kControlLimit);
        return count >= 0 ? std::optional(static_cast<std::size_t>(count)) : std::nullopt;
    };
}

} // namespace dmf::usb
