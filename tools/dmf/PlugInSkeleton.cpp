#include "PlugInSkeleton.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "FileMask.h"

namespace dmf::tool {

namespace {

// In each text NAME stands for the plug-in's name.

constexpr std::string_view kBuildFile = R"(cmake_minimum_required(VERSION 3.25)
project(NAME CXX)
if(NOT CMAKE_CXX_STANDARD)
    set(CMAKE_CXX_STANDARD 20)
endif()
find_package(dmf REQUIRED)

# Builds lib/dmf/PlugIns/NAME.bundle; installed beside the library when both have the same prefix.
dmf_add_bundle(NAME NAME SOURCES NAMEDevice.cpp)

enable_testing()
add_executable(NAMETest NAMETest.cpp)
target_link_libraries(NAMETest PRIVATE dmf::dmf)
target_compile_definitions(NAMETest PRIVATE PLUGIN_FOLDER="${CMAKE_BINARY_DIR}/lib/dmf/PlugIns")
add_dependencies(NAMETest NAME)
add_test(NAME NAME COMMAND NAMETest)
)";

constexpr std::string_view kInfoList = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>CFBundleExecutable</key>
	<string>NAME.so</string>
	<key>DMPlugInInterfaceNumber</key>
	<integer>2</integer>
	<key>DMServiceConnectionType</key>
	<string>NAME</string>
	<key>DMPlugInProtocol2ImplementorMap</key>
	<dict>
		<key>IDMDevice</key>
		<string>NAMEDevice</string>
	</dict>
</dict>
</plist>
)";

constexpr std::string_view kDeviceSource = R"(// A device of connection type "NAME", as far as the library asks for one.
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Class.h>

#include <memory>
#include <string>
#include <utility>

namespace {

class NAMEDevice final : public IDMDevice {
public:
    explicit NAMEDevice(std::string model) : model_(std::move(model)) {}

    // Here the device is asked. It may block for as long as the transport waits for an answer.
    bool isReachable() override { return true; }

    dmf::Dictionary retrieveParameters(const dmf::Dictionary&, std::shared_ptr<IDMDeviceHandler>) override
    {
        return {{std::string(kVendorNameProp), "QL"}, {std::string(kModelNameProp), model_}};
    }

private:
    std::string model_;
};

} // namespace

// An empty pointer says that there is no such device; what is thrown here is logged and says the same.
DMF_REGISTER_CLASS(NAMEDevice)
{
    described.implements<IDMDevice>(
        [](const dmf::Dictionary& spec, const std::shared_ptr<IDMDeviceHandler>&) -> std::shared_ptr<IDMDevice> {
            const auto model = spec.string(kModelNameProp);
            return model ? std::make_shared<NAMEDevice>(*model) : nullptr;
        });
}
)";

constexpr std::string_view kTestSource = R"(// Loads the plug-in as programs do and asks it for a device.
#include <dmf/ADMPlugInManager.h>
#include <dmf/DMCore.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/PlugInFolders.h>

#include <iostream>

int main()
{
    DMCoreInit();
    dmf::addPlugInFolder(PLUGIN_FOLDER);
    const auto manager = ADMPlugInManager::sharedManager();
    const auto found =
        manager->implementorForProtocol(IDMDevice::protocol(), {{std::string(kDMServiceConnectionType), "NAME"}});
    for (const auto& report : manager->reports()) {
        if (!report.reason.empty())
            std::cerr << report.path << ": " << report.reason << '\n';
    }
    if (!found)
        return std::cerr << "the plug-in gives no device class\n", 1;
    const dmf::Dictionary spec{{std::string(kModelNameProp), "Aurora 210"}};
    const auto device = found->make<IDMDevice>(spec, nullptr);
    if (!device || !device->isReachable())
        return std::cerr << "the device cannot be reached\n", 1;
    if (device->retrieveParameters({}, nullptr)[kModelNameProp] != "Aurora 210")
        return std::cerr << "the device does not tell its model\n", 1;
    if (found->make<IDMDevice>(dmf::Dictionary(), nullptr))
        return std::cerr << "there is a device for an empty description\n", 1;
    std::cout << "NAME works\n";
}
)";

std::string filledIn(std::string_view text, const std::string& name)
{
    // "NAME" is a keyword of CMake, too: what is one keeps a mark until the end.
    constexpr std::string_view kPlaceholder = "NAME";
    std::string filled;
    for (std::size_t at = 0; at < text.size();) {
        const auto found = text.find(kPlaceholder, at);
        filled += text.substr(at, found - at);
        if (found == std::string_view::npos)
            break;
        const bool isKeyword =
            text.substr(0, found).ends_with("dmf_add_bundle(") || text.substr(0, found).ends_with("add_test(");
        filled += isKeyword ? kPlaceholder : std::string_view(name);
        at = found + kPlaceholder.size();
    }
    return filled;
}

bool isLetter(char letter)
{
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

} // namespace

bool isPlugInName(const std::string& name)
{
    constexpr std::size_t kLongest = 40;
    return !name.empty() && name.size() <= kLongest && isLetter(name.front()) &&
           std::ranges::all_of(name, [](char it) { return isLetter(it) || (it >= '0' && it <= '9'); });
}

std::vector<std::string> writePlugInSkeleton(const std::string& name, const std::filesystem::path& folder)
{
    const std::pair<std::string, std::string_view> files[] = {{"CMakeLists.txt", kBuildFile},
                                                              {"Info.plist", kInfoList},
                                                              {name + "Device.cpp", kDeviceSource},
                                                              {name + "Test.cpp", kTestSource}};
    const FileMask mask;
    if (!std::filesystem::create_directory(folder))
        throw std::runtime_error(folder.string() + " is there already");
    std::vector<std::string> names;
    for (const auto& [file, text] : files) {
        std::ofstream stream(folder / file, std::ios::binary);
        stream << filledIn(text, name);
        stream.close();
        if (!stream)
            throw std::runtime_error("cannot write " + (folder / file).string());
        names.push_back(file);
    }
    return names;
}

} // namespace dmf::tool
