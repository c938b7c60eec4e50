#include <dmf/ADMDeviceBase.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMDeviceID.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Interrupt.h"
#include "Services.h"
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

struct DeviceIdOptions {
    std::string text, deviceClass;
    double timeout = 5.0;
};

/// The device ID that the device behind the URI gives.
std::string askDevice(const DeviceIdOptions& options)
{
    const auto service = serviceForURI(options.text, options.deviceClass);
    requireTransport(*service);
    const auto device = service->device();
    Interrupt::check();
    if (!device)
        throw Failure(ExitCode::nothingFound, "the device is not there");
    const auto base = std::dynamic_pointer_cast<ADMDeviceBase>(device);
    if (!base)
        throw Failure(ExitCode::failed, "devices of this connection type have no device ID");
    auto deviceId = base->newRetrievedDeviceIDWithTimeout(options.timeout);
    if (!deviceId)
        throw Failure(ExitCode::failed, "the device gives no device ID: it does not answer, somebody else uses it, or "
                                        "this user may not (see dmf doctor)");
    return *std::move(deviceId);
}

ExitCode readDeviceId(Session& session, const DeviceIdOptions& options)
{
    const bool isUri = options.text.find("://") != std::string::npos;
    const auto deviceId = isUri ? askDevice(options) : options.text;
    Json fields;
    if (isUri)
        fields["deviceId"] = deviceId;
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
                                         "  dmf device-id 'usb://QL/Aurora%20450n?serial=CN1234'",
                                         "Takes the text apart, or asks the device behind a URI for it. Fields that "
                                         "are not there are told as unknown.");
    const auto options = std::make_shared<DeviceIdOptions>();
    command->add_option("TEXT", options->text, "The device ID, as the device sent it without its length, or a URI")
        ->required();
    addDeviceClassOption(command, options->deviceClass);
    addTimeoutOption(command, options->timeout, "How long the device behind a URI may take");
    onCommand(command, session, [&session, options] { return readDeviceId(session, *options); });
}

} // namespace dmf::tool
