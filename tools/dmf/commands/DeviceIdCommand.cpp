#include <dmf/DMDeviceID.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Session.h"

namespace dmf::tool {

namespace {

struct Field {
    const char* name;
    std::string_view key, alternateKey;
};

constexpr Field kFields[] = {
    {"vendor", "MFG:", "MANUFACTURER:"},
    {"model", "MDL:", "MODEL:"},
    {"description", "DES:", "DESCRIPTION:"},
    {"serialNumber", "SERN:", "SN:"},
};

constexpr std::uint16_t kLastChannel = 255; // channels are numbered by one byte

ExitCode readDeviceId(Session& session, const std::string& deviceId)
{
    Json fields;
    bool isEmpty = true;
    for (const auto& [name, key, alternateKey] : kFields) {
        const auto value = DeviceIDCreateValueList(deviceId, key, alternateKey);
        isEmpty = isEmpty && !value;
        fields[name] = toJson(value);
    }
    fields["channels"] = Json::array();
    for (std::uint16_t channel = 0; channel <= kLastChannel; ++channel)
        if (CheckBiDiChannelExists(deviceId.c_str(), channel))
            fields["channels"].push_back(channel);
    if (isEmpty && fields["channels"].empty())
        throw Failure(ExitCode::nothingFound, "there is no field of a device ID in this text", fields);
    session.out.result(fields);
    return ExitCode::done;
}

} // namespace

void addDeviceIdCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(root, "device-id", "What a device says of itself in its IEEE 1284 device ID",
                                         "  dmf device-id 'MFG:QL;MDL:Aurora 450n;SN:CN1234;BD:1,2;'\n"
                                         "  dmf device-id \"$(cat /sys/class/usbmisc/lp0/device/ieee1284_id)\"",
                                         "Fields that are not there are told as unknown.");
    const auto deviceId = std::make_shared<std::string>();
    command->add_option("STRING", *deviceId, "The device ID, as the device sent it without its length")->required();
    onCommand(command, session, [&session, deviceId] { return readDeviceId(session, *deviceId); });
}

} // namespace dmf::tool
