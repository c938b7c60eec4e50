#include "EmulatedUsb.h"

#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace {
constexpr const char* kPreload = "libumockdev-preload.so.0";
constexpr const char* kController = "/devices/pci0000:00/0000:00:14.0/usb";

std::string hexadecimal(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    char digits[3];
    for (const auto byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

std::string padded(int number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%03d", number);
    return text;
}

int busOf(const EmulatedSpec& spec)
{
    return std::atoi(spec.place.c_str());
}

std::string nodeOf(const EmulatedSpec& spec)
{
    return "bus/usb/" + padded(busOf(spec)) + "/" + padded(spec.address);
}

std::string attribute(const char* name, const std::string& value)
{
    return value.empty() ? "" : std::string("A: ") + name + "=" + value + "\\n\n";
}

std::string four(int number)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(number) & 0xFFFFU);
    return text;
}

/// Whether a program has the file open. umockdev ends whoever still has one when the far end goes.
bool isOpenSomewhere(const std::string& path)
{
    std::error_code error;
    for (const auto& process : std::filesystem::directory_iterator("/proc", error)) {
        std::error_code unreadable;
        for (const auto& file : std::filesystem::directory_iterator(process.path() / "fd", unreadable))
            if (std::filesystem::read_symlink(file.path(), unreadable).native().starts_with(path))
                return true;
    }
    return false;
}

/// Takes the sockets away by which programs heard of events that have ended since: an event that cannot be brought to
/// one of them reaches nobody behind it.
void forgetEndedListeners(const std::string& folder)
{
    // First the files, then who listens: one that comes in between is not taken for one that has ended.
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(folder, error))
        if (file.is_socket())
            files.push_back(file.path());
    std::string present, line;
    for (std::ifstream sockets("/proc/net/unix"); std::getline(sockets, line);)
        present += line + '\n';
    for (const auto& file : files)
        if (present.find(file.native() + '\n') == std::string::npos)
            std::filesystem::remove(file, error);
}

void require(bool isDone, GError* error)
{
    if (!isDone)
        throw std::runtime_error(error ? error->message : "the emulated USB fails");
}
} // namespace

void EmulatedUsb::beginEmulation(char** arguments)
{
    const char* const preload = std::getenv("LD_PRELOAD");
    if (preload && std::string(preload).find("umockdev") != std::string::npos)
        return;
    ::setenv("LD_PRELOAD", (std::string(kPreload) + (preload ? ":" + std::string(preload) : "")).c_str(), 1);
    const char* const options = std::getenv("ASAN_OPTIONS");
    ::setenv("ASAN_OPTIONS", ((options ? std::string(options) + ":" : "") + "verify_asan_link_order=0").c_str(), 1);
    ::execv("/proc/self/exe", arguments);
}

std::string EmulatedUsb::problem()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("libumockdev-preload") != std::string::npos)
            return "";
    return "umockdev's library is not in front of the system's";
}

EmulatedUsb::EmulatedUsb() : bed_(umockdev_testbed_new())
{
    char* const folder = umockdev_testbed_get_root_dir(bed_);
    folder_ = folder;
    g_free(folder);
    // The tree of a machine that has a controller and nothing on it.
    ::mkdir((folder_ + "/sys/bus").c_str(), 0755);
    ::mkdir((folder_ + "/sys/bus/usb").c_str(), 0755);
    ::mkdir((folder_ + "/sys/bus/usb/devices").c_str(), 0755);
}

EmulatedUsb::~EmulatedUsb()
{
    while (!plugged_.empty())
        unplug(plugged_.begin()->first);
    while (!departed_.empty())
        leave(departed_.begin()->first);
    g_object_unref(bed_);
}

std::string EmulatedUsb::devicePath(const EmulatedSpec& spec) const
{
    return kController + std::to_string(busOf(spec)) + "/" + spec.place;
}

void EmulatedUsb::addBus(int number)
{
    if (std::exchange(buses_[number], true))
        return;
    const auto node = "bus/usb/" + padded(number) + "/001";
    const auto text =
        "P: " + (kController + std::to_string(number)) + "\nN: " + node + "\nE: DEVNAME=/dev/" + node +
        "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nA: busnum=" + std::to_string(number) +
        "\\n\nA: devnum=1\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n"
        "H: descriptors=12010002090001406B1D020006050302010109021900010100E0000904000001090000000705810304000C\n\n";
    GError* error = nullptr;
    require(umockdev_testbed_add_from_string(bed_, text.c_str(), &error), error);
}

std::shared_ptr<EmulatedPrinter> EmulatedUsb::prepare(const EmulatedSpec& spec)
{
    return std::make_shared<EmulatedPrinter>(spec, folder_ + "/sys" + devicePath(spec));
}

std::shared_ptr<EmulatedPrinter> EmulatedUsb::plug(const EmulatedSpec& spec)
{
    auto printer = prepare(spec);
    plug(printer);
    return printer;
}

void EmulatedUsb::plug(const std::shared_ptr<EmulatedPrinter>& printer)
{
    const auto& spec = printer->spec();
    forgetEndedListeners(folder_);
    addBus(busOf(spec));
    const auto path = devicePath(spec), node = nodeOf(spec);
    std::string interfaces;
    for (const auto& each : spec.interfaces) {
        if (each.alternate != 0)
            continue;
        const auto name = spec.place + ":1." + std::to_string(each.number), driver = printer->driverOf(each.number);
        interfaces += "P: " + path + "/" + name + "\nE: DEVTYPE=usb_interface\nE: SUBSYSTEM=usb\nA: bInterfaceNumber=" +
                      padded(each.number).substr(1) + "\\n\nA: bInterfaceClass=" + padded(each.classCode).substr(1) +
                      "\\n\n" + attribute("ieee1284_id", spec.kernelDeviceId) +
                      (driver.empty() ? "" : "L: driver=../../../../../../bus/usb/drivers/" + driver + "\n") + "\n";
    }
    const auto device =
        "P: " + path + "\n" + (spec.hasNode ? "N: " + node + "\n" : "") + "E: DEVNAME=/dev/" + node +
        "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: BUSNUM=" + padded(busOf(spec)) +
        "\nE: DEVNUM=" + padded(spec.address) + "\n" + attribute("busnum", std::to_string(busOf(spec))) +
        attribute("devnum", std::to_string(spec.address)) + attribute("speed", "480") +
        attribute("bConfigurationValue", "1") + attribute("bNumConfigurations", "1") +
        attribute("idVendor", four(spec.vendorId)) + attribute("idProduct", four(spec.productId)) +
        attribute("manufacturer", spec.manufacturer) + attribute("product", spec.product) +
        attribute("serial", spec.serialNumber) + "H: descriptors=" + hexadecimal(spec.descriptorBytes()) + "\n\n";
    GError* error = nullptr;
    // Whoever hears of the device may call it at once.
    leave(node);
    if (spec.hasNode)
        require(umockdev_testbed_attach_ioctl(bed_, ("/dev/" + node).c_str(), printer->handler(), &error), error);
    plugged_[spec.place] = printer;
    require(umockdev_testbed_add_from_string(bed_, device.c_str(), &error), error);
    if (!interfaces.empty())
        require(umockdev_testbed_add_from_string(bed_, interfaces.c_str(), &error), error);
}

void EmulatedUsb::unplug(std::string place)
{
    const auto found = plugged_.find(place);
    if (found == plugged_.end())
        return;
    const auto printer = found->second;
    plugged_.erase(found);
    printer->pullOut();
    const auto& spec = printer->spec();
    const auto path = "/sys" + devicePath(spec);
    forgetEndedListeners(folder_);
    umockdev_testbed_uevent(bed_, path.c_str(), "remove");
    if (spec.hasNode)
        departed_[nodeOf(spec)] = printer;
    for (const auto& each : spec.interfaces)
        if (each.alternate == 0)
            umockdev_testbed_remove_device(bed_, (path + "/" + place + ":1." + std::to_string(each.number)).c_str());
    umockdev_testbed_remove_device(bed_, path.c_str());
}

void EmulatedUsb::leave(std::string node)
{
    const auto found = departed_.find(node);
    if (found == departed_.end())
        return;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (isOpenSomewhere(folder_ + "/dev/" + node) && std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    umockdev_testbed_detach_ioctl(bed_, ("/dev/" + node).c_str(), nullptr);
    departed_.erase(found);
}

void EmulatedUsb::withoutEvents()
{
    // The events come by sockets of these names.
    for (int descriptor = 0; descriptor < 256; ++descriptor)
        ::mkdir((folder_ + "/event" + std::to_string(descriptor)).c_str(), 0755);
}
