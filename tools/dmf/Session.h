#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Output.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace dmf::tool {

/// One run of the program: its output and the command that was chosen.
struct Session {
    Output out;
    std::string logFile;
    std::function<ExitCode()> action;
};

// Each adds one command with its options; parsing the command line then sets the session's action.
void addUriCommand(CLI::App& root, Session& session);
void addInfoCommand(CLI::App& root, Session& session);
void addModelCommand(CLI::App& root, Session& session);
void addModelDbCommand(CLI::App& root, Session& session);
void addResolveCommand(CLI::App& root, Session& session);
void addDiscoverCommand(CLI::App& root, Session& session);
void addDevicesCommand(CLI::App& root, Session& session);
void addSendCommand(CLI::App& root, Session& session);
void addPlugInsCommand(CLI::App& root, Session& session);
void addPlugInCommand(CLI::App& root, Session& session);
void addSimulateCommand(CLI::App& root, Session& session);
void addLogCommand(CLI::App& root, Session& session);
void addDeviceIdCommand(CLI::App& root, Session& session);
void addCredentialsCommand(CLI::App& root, Session& session);
void addLockCommand(CLI::App& root, Session& session);
void addDoctorCommand(CLI::App& root, Session& session);

/// A command of `parent`. Its help ends with `details`, what the one line of `description` leaves out, and an example.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& examples, const std::string& details = {});
/// Makes `run` the session's action when the command is chosen.
void onCommand(CLI::App* command, Session& session, std::function<ExitCode()> run);
/// Adds `--class C`; `value` starts as the printer class. Short names ("printer", "scanner", "fax", "storage") count.
void addDeviceClassOption(CLI::App* command, std::string& value);
/// Lets an option take numbers above 0 only.
void requirePositive(CLI::Option* option);
/// Adds `--timeout S`, a positive number of seconds.
void addTimeoutOption(CLI::App* command, double& value, const std::string& description);

} // namespace dmf::tool
