#include "Session.h"

#include <dmf/DMKeys.h>

#include <CLI/CLI.hpp>

#include <map>
#include <utility>

namespace dmf::tool {

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& examples, const std::string& details)
{
    CLI::App* const command = parent.add_subcommand(name, description);
    command->footer((details.empty() ? "" : details + "\n\n") + "Example:\n" + examples);
    command->fallthrough(); // --json and --quiet may stand anywhere
    return command;
}

void onCommand(CLI::App* command, Session& session, std::function<ExitCode()> run)
{
    command->callback([&session, run = std::move(run)] { session.action = run; });
}

void addDeviceClassOption(CLI::App* command, std::string& value)
{
    value = kPrinterDeviceClass;
    const auto fullName = [](std::string name) {
        static const std::map<std::string, std::string_view> kShortNames{{"printer", kPrinterDeviceClass},
                                                                         {"scanner", kScannerDeviceClass},
                                                                         {"fax", kFaxDeviceClass},
                                                                         {"storage", kStorageDeviceClass}};
        const auto found = kShortNames.find(name);
        return found == kShortNames.end() ? name : std::string(found->second);
    };
    command
        ->add_option_function<std::string>(
            "--class", [&value, fullName](const std::string& name) { value = fullName(name); },
            "The device class: printer, scanner, fax, storage or a full name; printer if not given")
        ->type_name("C");
}

void requirePositive(CLI::Option* option)
{
    option->check([](const std::string& text) {
        double value = 0;
        return CLI::detail::lexical_cast(text, value) && value > 0 ? std::string() : "'" + text + "' is not above 0";
    });
}

void addTimeoutOption(CLI::App* command, double& value, const std::string& description)
{
    requirePositive(command->add_option("--timeout", value, description)->type_name("SECONDS")->capture_default_str());
}

} // namespace dmf::tool
