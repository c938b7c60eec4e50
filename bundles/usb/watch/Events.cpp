#include "Events.h"

#include <libudev.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <string_view>

namespace dmf::usb {

namespace {
constexpr int kQueueSize = 1024 * 1024; // a hub with everything behind it
constexpr int kMostAtOnce = 4096;

/// Where the daemon does not run the library makes a monitor that belongs to no group, and never hears of anything.
bool isDeaf(int descriptor)
{
    sockaddr_nl address{};
    socklen_t length = sizeof address;
    return ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           address.nl_family == AF_NETLINK && address.nl_groups == 0;
}
} // namespace

Events::Events()
{
    udev_ = udev_new();
    monitor_ = udev_ ? udev_monitor_new_from_netlink(udev_, "udev") : nullptr;
    if (!monitor_)
        return;
    (void)udev_monitor_set_receive_buffer_size(monitor_, kQueueSize); // else the system's own size must do
    if (udev_monitor_filter_add_match_subsystem_devtype(monitor_, "usb", nullptr) >= 0 &&
        udev_monitor_enable_receiving(monitor_) >= 0)
        descriptor_ = udev_monitor_get_fd(monitor_);
    if (descriptor_ >= 0 && isDeaf(descriptor_))
        descriptor_ = -1;
}

Events::~Events()
{
    if (monitor_)
        udev_monitor_unref(monitor_);
    if (udev_)
        udev_unref(udev_);
}

std::vector<Events::Event> Events::take(bool& wereLost)
{
    wereLost = false;
    std::vector<Event> events;
    for (int i = 0; i < kMostAtOnce; ++i) {
        errno = 0;
        auto* const device = udev_monitor_receive_device(monitor_);
        if (!device) {
            wereLost = errno == ENOBUFS;
            break;
        }
        const auto text = [](const char* each) { return each ? std::string_view(each) : std::string_view(); };
        const auto name = text(udev_device_get_sysname(device));
        const bool isDevice = text(udev_device_get_devtype(device)) == "usb_device";
        // What happens to an interface happens to its device, which stays.
        events.push_back({isDevice && text(udev_device_get_action(device)) == "remove",
                          std::string(name.substr(0, name.find(':')))});
        udev_device_unref(device);
    }
    return events;
}

} // namespace dmf::usb
