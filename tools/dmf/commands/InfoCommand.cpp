#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include <CLI/CLI.hpp>

#include <memory>

#include "Services.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct InfoOptions {
    std::string uri, deviceClass;
};

ExitCode showInfo(Session& session, const InfoOptions& options)
{
    const auto service = serviceForURI(options.uri, options.deviceClass);
    // A service that does not know its model asks the device for it, but this command is to leave devices alone.
    ADMServiceURIParser parser;
    const bool parsed = parser.parseURI(options.uri);
    const Dictionary components = parsed ? parser.components() : Dictionary();
    const bool knowsModel = components.contains(kModelNameProp);

    Json fields;
    fields["uri"] = toJson(service->uri());
    fields["deviceClass"] = toJson(service->deviceClass());
    fields["connectionType"] = toJson(service->connectionType());
    fields["vendorName"] = toJson(knowsModel ? service->vendorName() : components.string(kVendorNameProp));
    fields["modelName"] = toJson(knowsModel ? service->modelName() : std::nullopt);
    fields["deviceName"] = toJson(knowsModel ? service->deviceName() : components.string(kDeviceNameProp));
    fields["serviceName"] = toJson(service->serviceName());
    fields["params"] = toJson(Value(service->connectionParams()));
    fields["standard"] = service->hasStandardURI();
    fields["supportedDeviceClasses"] = knowsModel ? service->supportedDeviceClasses() : std::vector<std::string>();
    fields["hash"] = service->hash();
    session.out.result(fields);
    return ExitCode::done;
}

} // namespace

void addInfoCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(root, "info", "What is known of a service without asking its device",
                                         "  dmf info 'usb://QL/Aurora%20450n?serial=CN1234'",
                                         "It comes from the URI and the model database.");
    const auto options = std::make_shared<InfoOptions>();
    command->add_option("URI", options->uri, "The service's URI")->required();
    addDeviceClassOption(command, options->deviceClass);
    onCommand(command, session, [&session, options] { return showInfo(session, *options); });
}

} // namespace dmf::tool
