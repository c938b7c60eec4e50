#pragma once

#include <memory>
#include <string>
#include <vector>

struct udev;
struct udev_monitor;

namespace dmf::usb {

/// What the system tells about the USB as it happens.
class Events {
public:
    struct Event {
        bool isRemoval = false;
        std::string place; ///< of the device that it is about
    };

    /// Not open where nobody tells: without udev, as in most containers.
    Events();
    ~Events();
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    /// Readable when there are events.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    /// Those that came since, in their order; never waits. `wereLost` is set when some did not fit into the queue.
    [[nodiscard]] std::vector<Event> take(bool& wereLost);

private:
    udev* udev_ = nullptr;
    udev_monitor* monitor_ = nullptr;
    int descriptor_ = -1;
};

} // namespace dmf::usb
