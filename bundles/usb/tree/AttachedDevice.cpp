#include "AttachedDevice.h"

namespace dmf::usb {

std::string Access::explanation(const std::string& node) const
{
    switch (state) {
    case State::open: break;
    case State::noNode: return node + " is not there; in a container, hand /dev/bus/usb in";
    case State::noPermission:
        return "this user may not use " + node +
               "; become a member of the group that owns it (often lp), or let a udev rule open it";
    case State::claimed:
        return node + " is in use by " + (holder.empty() ? "another program" : holder) + "; end that first";
    }
    return {};
}

int AttachedDevice::configurationIndex() const noexcept
{
    const auto* const active = configuration();
    return active ? static_cast<int>(active - descriptors.configurations.data()) : 0;
}

std::string AttachedDevice::driverOf(int interface) const
{
    const auto found = drivers.find(interface);
    return found != drivers.end() ? found->second : std::string();
}

} // namespace dmf::usb
