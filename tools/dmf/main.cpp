#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include <dmf/ADMLogger.h>
#include <dmf/DMCore.h>

#include <CLI/CLI.hpp>

#include "Interrupt.h"
#include "Output.h"
#include "Session.h"

using namespace dmf::tool;
using namespace std::string_literals;

namespace {

constexpr const char* kDescription =
    "Names devices by URI, tells what their models can do, resolves them and sends them data.";

constexpr const char* kFooter =
    "Exit status: 0 done, 1 refused or failed, 2 wrong command line, 3 timed out, 4 nothing\n"
    "found, 130 interrupted; 'lock' passes on its command's.\n"
    "\n"
    "Example:\n"
    "  dmf uri parse 'usb://QL/Model%20100?serial=CN1234'\n"
    "\n"
    "'dmf COMMAND --help' tells about one command.";

void addCommands(CLI::App& app, Session& session)
{
    addUriCommand(app, session);
    addInfoCommand(app, session);
    addModelCommand(app, session);
    addModelDbCommand(app, session);
    addResolveCommand(app, session);
    addDiscoverCommand(app, session);
    addDevicesCommand(app, session);
    addSendCommand(app, session);
    addPlugInsCommand(app, session);
    addPlugInCommand(app, session);
    addSimulateCommand(app, session);
    addLogCommand(app, session);
    addDeviceIdCommand(app, session);
    addCredentialsCommand(app, session);
    addLockCommand(app, session);
    addDoctorCommand(app, session);
}

// Looked for before parsing: a wrong command line is told in JSON as well.
bool asksForJson(int count, char** arguments)
{
    for (int i = 1; i < count && std::strcmp(arguments[i], "--") != 0; ++i)
        if (std::strcmp(arguments[i], "--json") == 0)
            return true;
    return false;
}

std::shared_ptr<ADMLogger> startLogFile(const std::string& path)
{
    if (path.empty())
        return nullptr;
    std::string refusal;
    if (!ADMLogger::createLogFileIfNeeded(path, &refusal))
        throw Failure(ExitCode::failed, "cannot write the log file: " + refusal);
    auto logger = ADMLogger::initWithLogLevel("debug2", path);
    logger->startLogging();
    return logger;
}

ExitCode runAction(Session& session)
{
    const auto logger = startLogFile(session.logFile);
    ExitCode code = ExitCode::failed;
    try {
        code = session.action();
    } catch (...) {
        if (logger)
            logger->endLogging();
        throw;
    }
    if (logger)
        logger->endLogging();
    return code;
}

ExitCode run(int count, char** arguments, Session& session)
{
    CLI::App app(kDescription, "dmf");
    app.footer(kFooter);
    app.set_version_flag("--version", "dmf " DMF_VERSION, "Show the version and leave");
    app.set_help_flag("-h,--help", "Show this help and leave");
    app.add_flag("--json", session.out.json, "Write the result, or the error, as one JSON object");
    app.add_flag("-q,--quiet", session.out.quiet, "No remarks, no progress");
    app.add_option("--log-file", session.logFile, "Append what the library logs during this run to a file of its own")
        ->type_name("FILE");
    app.require_subcommand(1);
    app.fallthrough();
    addCommands(app, session);
    try {
        app.parse(count, arguments);
    } catch (const CLI::Success& success) { // help and version
        app.exit(success);
        return ExitCode::done;
    } catch (const CLI::RequiredError& error) {
        // A command that does not exist would otherwise only be told as one that is missing.
        const auto extra = app.remaining(true);
        throw Failure(ExitCode::wrongCommandLine,
                      (extra.empty() ? error.what() : "there is no command '" + extra.front() + "'") +
                          " (see --help)"s);
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::wrongCommandLine, std::string(error.what()) + " (see --help)");
    }
    return runAction(session);
}

// A standard descriptor that the caller has closed would go to the first file, or connection, that is opened: what is
// read or written there would come from it and go to it.
void openStandardDescriptors()
{
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(number, F_GETFD) == -1 && errno == EBADF)
            (void)::open("/dev/null", O_RDWR); // the lowest number that is free, which is this one
}

} // namespace

int main(int count, char** arguments)
{
    openStandardDescriptors();
    Session session;
    session.out.json = asksForJson(count, arguments);
    ExitCode code = ExitCode::failed;
    try {
        Interrupt::install();
        Interrupt::oweObject(session.out.json);
        DMCoreInit();
        code = run(count, arguments, session);
    } catch (const Failure& failure) {
        session.out.failure(failure);
        code = failure.code();
    } catch (const std::exception& error) {
        session.out.failure(Failure(ExitCode::failed, error.what()));
        code = ExitCode::failed;
    }
    if (!session.out.finish() && code == ExitCode::done) {
        session.out.failure(Failure(ExitCode::failed, "cannot write the output"));
        code = ExitCode::failed;
    }
    Interrupt::uninstall();
    return static_cast<int>(code);
}
