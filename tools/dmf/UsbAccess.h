#pragma once

#include <string>
#include <vector>

namespace dmf::tool {

/// A device on a USB that has a printer interface.
struct UsbPrinter {
    std::string name; ///< what the device calls itself, else its place on the bus
    std::string node; ///< the file by which programs reach it
    enum class Access { open, noPermission, noNode, claimed };
    Access access = Access::open;
    std::string driver; ///< of its printer interface; empty for none
};

/// Whether this machine shows a tree of USB devices.
[[nodiscard]] bool hasUsb();
/// The printers on it, sorted by node.
[[nodiscard]] std::vector<UsbPrinter> usbPrinters();

} // namespace dmf::tool
