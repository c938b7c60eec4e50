#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMServiceURI.h>
#include <dmf/ADMServiceURIGenerator.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

#include "ReasonLog.h"
#include "Services.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct MakeOptions {
    std::string product, vendor, serial; // usb
    std::string name;                    // ip, host, bonjour
    std::optional<std::string> type, domain, scheme;
};

using Maker = std::shared_ptr<ADMServiceURIImp> (*)(const MakeOptions& options, ADMServiceURI::Scheme scheme);

std::shared_ptr<ADMServiceURIImp> makeUSB(const MakeOptions& options, ADMServiceURI::Scheme scheme)
{
    return ADMServiceURI::USBServiceURIWithProductName(options.product, options.vendor, options.serial, scheme);
}

std::shared_ptr<ADMServiceURIImp> makeIP(const MakeOptions& options, ADMServiceURI::Scheme scheme)
{
    return ADMServiceURI::networkServiceURIWithIPAddress(options.name, scheme);
}

std::shared_ptr<ADMServiceURIImp> makeHost(const MakeOptions& options, ADMServiceURI::Scheme scheme)
{
    return ADMServiceURI::networkServiceURIWithHostName(options.name, scheme);
}

std::shared_ptr<ADMServiceURIImp> makeBonjour(const MakeOptions& options, ADMServiceURI::Scheme scheme)
{
    return ADMServiceURI::bonjourServiceURIWithServiceName(options.name, options.type, options.domain, scheme);
}

ExitCode printURI(Session& session, const std::string& uri)
{
    Json fields;
    fields["uri"] = uri;
    session.out.result(fields, [](const Json& all) { return all["uri"].get<std::string>() + '\n'; });
    return ExitCode::done;
}

ExitCode parse(Session& session, const std::string& uri)
{
    const ReasonLog log;
    ADMServiceURIParser parser;
    if (!parser.parseURI(uri))
        throw Failure(ExitCode::failed, refusalOfURI(uri, log.reason()));
    Json fields;
    fields["uri"] = parser.uri();
    fields["standard"] = parser.isStandardURI();
    fields["components"] = toJson(parser.components());
    session.out.result(fields);
    return ExitCode::done;
}

ExitCode make(Session& session, const MakeOptions& options, Maker maker)
{
    const auto uri = maker(options, options.scheme);
    if (!uri)
        throw Failure(ExitCode::failed, "these parts do not make a URI: a scheme, vendor, address, host name, type or "
                                        "domain holds characters that may not stand in one");
    return printURI(session, uri->stringRepresentation());
}

// The URI is parsed into a service that knows everything but its URI, so that it has to be written anew.
ExitCode generate(Session& session, const std::string& uri, const std::string& deviceClass,
                  const std::optional<std::string>& scheme)
{
    const ReasonLog log;
    ADMServiceURIParser parser;
    if (!parser.parseURI(uri))
        throw Failure(ExitCode::failed, refusalOfURI(uri, log.reason()));
    Dictionary spec = parser.components();
    spec.set(kDeviceClassProp, deviceClass);
    const auto service = ADMServiceInfoImp::initWithSpec(spec);
    std::optional<std::string> generated;
    try {
        ADMServiceURIGenerator generator;
        generated = scheme ? generator.generateUniversalURIForServiceInfo(service, *scheme)
                           : generator.generateURIForServiceInfo(service);
    } catch (const UnrecognizedOperation&) {
        throw Failure(ExitCode::failed, "URIs of connection type " + service->connectionType().value_or("?") +
                                            " can be read but not written");
    }
    if (generated)
        return printURI(session, *generated);
    const std::string reason = log.reason();
    throw Failure(ExitCode::failed, reason.empty() ? "there is no such form of this URI" : reason);
}

void addMakeCommand(CLI::App& parent, Session& session, const std::string& name, const std::string& description,
                    const std::string& example, Maker maker,
                    const std::function<void(CLI::App&, MakeOptions&)>& addOptions)
{
    CLI::App* const command = addCommand(parent, name, description, "  dmf uri make " + example);
    const auto options = std::make_shared<MakeOptions>();
    addOptions(*command, *options);
    command->add_option("--scheme", options->scheme, "Write the universal form with this scheme")->type_name("X");
    onCommand(command, session, [&session, options, maker] { return make(session, *options, maker); });
}

void addMakeCommands(CLI::App& uri, Session& session)
{
    CLI::App* const command =
        addCommand(uri, "make", "Builds a URI and prints it", "  dmf uri make host printer1.example.org");
    command->require_subcommand(1);
    addMakeCommand(*command, session, "usb", "The URI of a USB device",
                   "usb --vendor QL --product 'Model 100' --serial CN1234", &makeUSB,
                   [](CLI::App& usb, MakeOptions& options) {
                       usb.add_option("--product", options.product, "The product name")->type_name("P")->required();
                       usb.add_option("--vendor", options.vendor, "The vendor")->type_name("V")->required();
                       usb.add_option("--serial", options.serial, "The serial number")->type_name("S")->required();
                   });
    addMakeCommand(*command, session, "ip", "The URI of a network address", "ip fe80::1%eth0", &makeIP,
                   [](CLI::App& ip, MakeOptions& options) {
                       ip.add_option("ADDRESS", options.name, "IPv4, or IPv6 with or without a zone")->required();
                   });
    addMakeCommand(*command, session, "host", "The URI of a host", "host printer1 --scheme myapp", &makeHost,
                   [](CLI::App& host, MakeOptions& options) {
                       host.add_option("NAME", options.name, "The host's name")->required();
                   });
    addMakeCommand(*command, session, "bonjour", "The URI of a service announced by DNS-SD",
                   "bonjour 'Office Printer' --type _ipp._tcp.", &makeBonjour,
                   [](CLI::App& bonjour, MakeOptions& options) {
                       bonjour.add_option("NAME", options.name, "The service's name")->required();
                       bonjour
                           .add_option("--type", options.type,
                                       "With its dot at the end; _pdl-datastream._tcp. if "
                                       "not given")
                           ->type_name("T");
                       bonjour.add_option("--domain", options.domain, "With its dot at the end; local. if not given")
                           ->type_name("D");
                   });
}

} // namespace

void addUriCommand(CLI::App& root, Session& session)
{
    CLI::App* const uri =
        addCommand(root, "uri", "Reads and writes device URIs", "  dmf uri parse 'socket://printer1:9100/?bidi'");
    uri->require_subcommand(1);

    CLI::App* const parsing = addCommand(*uri, "parse", "Takes a URI apart; a refusal says why",
                                         "  dmf uri parse 'usb://QL/Model%20100?serial=CN1234'");
    const auto parsed = std::make_shared<std::string>();
    parsing->add_option("URI", *parsed, "The URI")->required();
    onCommand(parsing, session, [&session, parsed] { return parse(session, *parsed); });

    addMakeCommands(*uri, session);

    struct GenerateOptions {
        std::string uri, deviceClass;
        std::optional<std::string> scheme;
    };
    const auto options = std::make_shared<GenerateOptions>();
    CLI::App* const generating =
        addCommand(*uri, "generate", "Writes the URI of a service anew, from what its URI says of it",
                   "  dmf uri generate 'qlip://10.0.0.5?model=M9&mac=001122334455&ifid=1'");
    generating->add_option("URI", options->uri, "The URI")->required();
    addDeviceClassOption(generating, options->deviceClass);
    generating->add_option("--scheme", options->scheme, "Write the universal form with this scheme")->type_name("X");
    onCommand(generating, session,
              [&session, options] { return generate(session, options->uri, options->deviceClass, options->scheme); });
}

} // namespace dmf::tool
