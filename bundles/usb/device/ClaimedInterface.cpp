#include "ClaimedInterface.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace dmf::usb {

ClaimedInterface::ClaimedInterface(const std::string& node, int interface, std::chrono::milliseconds limit)
    : interface_(interface), limit_(limit)
{
    file_ = ::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    auto number = static_cast<unsigned>(interface_);
    isClaimed_ = file_ >= 0 && ::ioctl(file_, USBDEVFS_CLAIMINTERFACE, &number) == 0;
}

ClaimedInterface::~ClaimedInterface()
{
    if (file_ < 0)
        return;
    if (isClaimed_) {
        auto number = static_cast<unsigned>(interface_);
        (void)::ioctl(file_, USBDEVFS_RELEASEINTERFACE, &number);
        // A driver that wanted the interface meanwhile, such as one that is loaded for a device just plugged in, was
        // turned away, and comes again only when it is called.
        usbdevfs_ioctl call{interface_, USBDEVFS_CONNECT, nullptr};
        (void)::ioctl(file_, USBDEVFS_IOCTL, &call);
    }
    ::close(file_);
}

ControlTransfer ClaimedInterface::transfer() const
{
    return [this](const ControlRequest& request, std::span<std::uint8_t> data) -> std::optional<std::size_t> {
        if (!isClaimed_)
            return std::nullopt;
        usbdevfs_ctrltransfer transfer{};
        transfer.bRequestType = request.type;
        transfer.bRequest = request.request;
        transfer.wValue = request.value;
        transfer.wIndex = request.index;
        transfer.wLength = static_cast<std::uint16_t>(data.size());
        transfer.timeout = static_cast<std::uint32_t>(limit_.count());
        transfer.data = data.data();
        const int count = ::ioctl(file_, USBDEVFS_CONTROL, &transfer);
        return count >= 0 ? std::optional(static_cast<std::size_t>(count)) : std::nullopt;
    };
}

} // namespace dmf::usb
