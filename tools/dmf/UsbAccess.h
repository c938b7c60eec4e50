#pragma once

#include <string>
#include <vector>

namespace dmf::tool {

/// A device on a USB that has a printer interface.
struct UsbPrinter {
    std::string name; ///< what the device calls itself, else its place on the bus
    std::string node; ///< the file by which programs reach it
    bool isUsable = false;
};

/// Whether this machine has a USB that programs can look at.
[[nodiscard]] bool hasUsb();
/// The printers on it, sorted by node.
[[nodiscard]] std::vector<UsbPrinter> usbPrinters();

} // namespace dmf::tool
