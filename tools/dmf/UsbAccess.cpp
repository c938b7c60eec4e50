#include "UsbAccess.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>

namespace dmf::tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* kDevices = "/sys/bus/usb/devices";
constexpr const char* kNodes = "/dev/bus/usb";
constexpr const char* kPrinterClass = "07";
constexpr const char* kProgramDriver = "usbfs"; // what the kernel calls a program that has claimed an interface

std::string firstLine(const fs::path& path)
{
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

std::string nodeOf(const fs::path& device)
{
    char name[32];
    std::snprintf(name, sizeof name, "/%03d/%03d", std::atoi(firstLine(device / "busnum").c_str()),
                  std::atoi(firstLine(device / "devnum").c_str()));
    return kNodes + std::string(name);
}

} // namespace

bool hasUsb()
{
    std::error_code error;
    return fs::is_directory(kDevices, error);
}

std::vector<UsbPrinter> usbPrinters()
{
    std::map<std::string, UsbPrinter> found; // a device may have several such interfaces
    std::error_code error;
    for (fs::directory_iterator entry(kDevices, error), end; !error && entry != end; entry.increment(error)) {
        // An interface is named after its device, with a colon and more behind.
        const std::string name = entry->path().filename();
        if (name.find(':') == std::string::npos || firstLine(entry->path() / "bInterfaceClass") != kPrinterClass)
            continue;
        const fs::path device = fs::path(kDevices) / name.substr(0, name.find(':'));
        UsbPrinter printer{firstLine(device / "product"), nodeOf(device), {}, {}};
        if (printer.name.empty())
            printer.name = device.filename();
        const fs::path driver = fs::read_symlink(entry->path() / "driver", error);
        printer.driver = error ? "" : driver.filename().string();
        error.clear();
        using Access = UsbPrinter::Access;
        if (::access(printer.node.c_str(), R_OK | W_OK) != 0)
            printer.access = errno == ENOENT ? Access::noNode : Access::noPermission;
        else if (printer.driver == kProgramDriver)
            printer.access = Access::claimed;
        found.emplace(printer.node, std::move(printer));
    }
    std::vector<UsbPrinter> list;
    for (auto& [node, printer] : found)
        list.push_back(std::move(printer));
    return list;
}

} // namespace dmf::tool
