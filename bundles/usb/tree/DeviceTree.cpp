#include "DeviceTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>

namespace dmf::usb {

namespace {
constexpr const char* kTree = "/sys/bus/usb/devices";
constexpr std::size_t kLongestFile = 64 * 1024;
constexpr std::size_t kMostProcesses = 20'000;

/// The names in a folder, without those that begin with a dot; nothing when it cannot be read.
std::optional<std::vector<std::string>> entriesOf(const std::string& folder)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), &::closedir);
    if (!open)
        return std::nullopt;
    std::vector<std::string> names;
    while (const auto* const entry = ::readdir(open.get()))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    return names;
}

/// What the file holds, up to a bound; nothing when it cannot be read.
std::optional<std::vector<std::uint8_t>> contentOf(const std::string& path)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (file < 0)
        return std::nullopt;
    std::vector<std::uint8_t> content;
    std::uint8_t block[4096];
    while (content.size() < kLongestFile) {
        const auto count = ::read(file, block, sizeof block);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        content.insert(content.end(), block, block + count);
    }
    ::close(file);
    return content;
}

std::optional<std::string> textOf(const std::string& path)
{
    const auto content = contentOf(path);
    return content ? plainText({reinterpret_cast<const char*>(content->data()), content->size()}) : std::nullopt;
}

std::optional<int> numberOf(const std::string& path)
{
    const auto text = textOf(path);
    int number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc())
        return std::nullopt;
    return number;
}

std::string lastPartOfLink(const std::string& path)
{
    char target[512];
    const auto length = ::readlink(path.c_str(), target, sizeof target);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof target)
        return {};
    const std::string_view text(target, static_cast<std::size_t>(length));
    return std::string(text.substr(text.rfind('/') + 1));
}

/// "1-1.4", and neither "usb1", which is a bus, nor "1-1.4:1.0", which is an interface.
bool isPlace(const std::string& name)
{
    return !name.empty() && name.front() >= '0' && name.front() <= '9' && name.find(':') == std::string::npos;
}

std::string nodeName(int bus, int address)
{
    char name[40];
    std::snprintf(name, sizeof name, "/dev/bus/usb/%03d/%03d", bus, address);
    return name;
}

void readInterfaces(AttachedDevice& device, const std::string& folder)
{
    // An interface is named after its device, its configuration and its number.
    const auto prefix = device.place + ":";
    for (const auto& name : entriesOf(folder).value_or(std::vector<std::string>())) {
        const auto dot = name.rfind('.');
        int number = 0;
        if (!name.starts_with(prefix) || dot == std::string::npos ||
            std::from_chars(name.data() + dot + 1, name.data() + name.size(), number).ec != std::errc())
            continue;
        device.drivers[number] = lastPartOfLink(folder + "/" + name + "/driver");
        if (!device.kernelDeviceId)
            if (auto text = textOf(folder + "/" + name + "/ieee1284_id"))
                device.kernelDeviceId = std::move(text);
    }
}

Access accessTo(const AttachedDevice& device)
{
    if (::access(device.node.c_str(), R_OK | W_OK) != 0)
        return {errno == ENOENT ? Access::State::noNode : Access::State::noPermission, {}};
    const bool hasProgram = std::any_of(device.drivers.begin(), device.drivers.end(),
                                        [](const auto& each) { return each.second == kProgramDriver; });
    if (!hasProgram)
        return {};
    bool isOurs = false;
    auto holder = holderOf(device.node, isOurs);
    return isOurs ? Access{} : Access{Access::State::claimed, std::move(holder)};
}
} // namespace

std::optional<std::vector<std::string>> attachedPlaces()
{
    auto names = entriesOf(kTree);
    if (!names)
        return std::nullopt;
    std::erase_if(*names, [](const std::string& name) { return !isPlace(name); });
    std::sort(names->begin(), names->end());
    return names;
}

std::optional<AttachedDevice> readDevice(const std::string& place)
{
    const auto folder = kTree + ("/" + place);
    const auto content = contentOf(folder + "/descriptors");
    auto descriptors = content ? Descriptors::read(*content) : std::nullopt;
    const auto bus = numberOf(folder + "/busnum");
    const auto address = numberOf(folder + "/devnum");
    if (!descriptors || !bus || !address)
        return std::nullopt;
    AttachedDevice device;
    device.place = place;
    device.bus = *bus;
    device.address = *address;
    device.node = nodeName(*bus, *address);
    device.descriptors = std::move(*descriptors);
    device.activeConfiguration = numberOf(folder + "/bConfigurationValue").value_or(0);
    device.names.vendor = textOf(folder + "/manufacturer");
    device.names.model = textOf(folder + "/product");
    device.names.serialNumber = trueSerialNumber(textOf(folder + "/serial"));
    readInterfaces(device, folder);
    device.access = accessTo(device);
    return device;
}

std::vector<AttachedDevice> readAllDevices()
{
    std::vector<AttachedDevice> devices;
    for (const auto& place : attachedPlaces().value_or(std::vector<std::string>()))
        if (auto device = readDevice(place))
            devices.push_back(std::move(*device));
    return devices;
}

std::string holderOf(const std::string& node, bool& isOurs)
{
    isOurs = false;
    std::size_t looked = 0;
    for (const auto& process : entriesOf("/proc").value_or(std::vector<std::string>())) {
        if (process.front() < '0' || process.front() > '9' || ++looked > kMostProcesses)
            continue;
        const auto folder = "/proc/" + process;
        for (const auto& file : entriesOf(folder + "/fd").value_or(std::vector<std::string>())) {
            char target[512];
            const auto length = ::readlink((folder + "/fd/" + file).c_str(), target, sizeof target);
            if (length <= 0 || !std::string_view(target, static_cast<std::size_t>(length)).ends_with(node))
                continue;
            if (process == std::to_string(::getpid())) {
                isOurs = true;
                return "this program";
            }
            return textOf(folder + "/comm").value_or("a program") + " (process " + process + ")";
        }
    }
    return {};
}

} // namespace dmf::usb
