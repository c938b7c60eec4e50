#include <dmf/ADMLogger.h>
#include <dmf/DMKeys.h>

#include <CLI/CLI.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include "Session.h"

namespace dmf::tool {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what, int error)
{
    throw Failure(ExitCode::failed, what + ": " + std::generic_category().message(error));
}

// Every program logs in this folder, whoever runs it, so all may make files there, but none may remove another's.
void makeFolder(const fs::path& folder)
{
    std::error_code error;
    if (fs::is_directory(folder, error))
        return;
    fs::create_directories(folder, error);
    if (error)
        fail("cannot make the folder " + folder.string(), error.value());
    if (::chmod(folder.c_str(), S_ISVTX | 0777) != 0)
        fail("cannot open the folder " + folder.string() + " to all programs", errno);
}

// Through a new file that is moved into place: a reader sees the old word or the new one, and no link is followed.
void setLevel(const std::string& level)
{
    const fs::path path = kDMLogConfigPath;
    makeFolder(path.parent_path());
    std::string temporary = path.string() + ".XXXXXX";
    const int file = ::mkstemp(temporary.data());
    if (file < 0)
        fail("cannot set the level in " + path.string(), errno);
    const std::string content = level + '\n';
    bool good = ::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
                ::fchmod(file, 0644) == 0;
    good = ::close(file) == 0 && good;
    if (good && ::rename(temporary.c_str(), path.c_str()) == 0)
        return;
    const int error = errno;
    ::unlink(temporary.c_str());
    fail("cannot set the level in " + path.string(), error);
}

ExitCode showOrSet(Session& session, const std::string& level)
{
    if (!level.empty()) {
        if (ADMLogger::levelValueFromString(level) == ADMLogger::kUnknownLevel)
            throw Failure(ExitCode::wrongCommandLine,
                          "'" + level + "' is no level: nolog, info, warnings, errors, debug, debug2");
        setLevel(level);
    }
    const auto configured = level.empty() ? ADMLogger::environmentLogLevel() : level;
    Json fields;
    fields["level"] = toJson(configured);
    fields["file"] = (fs::path(kDMLogConfigPath).parent_path() / "DMF_dmf.log").string();
    session.out.result(fields, [](const Json& all) {
        const bool none = all["level"].is_null();
        return "level: " + (none ? "none: nothing is logged" : printable(all["level"].get<std::string>())) +
               "\nfile:  " + all["file"].get<std::string>() +
               "\n       (each program has its own: DMF_<program>.log; a level takes effect within five seconds)\n";
    });
    return ExitCode::done;
}

} // namespace

void addLogCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(
        root, "log", "Shows or sets how much this machine's programs log", "  dmf log debug",
        "The levels are nolog, info, warnings, errors, debug and debug2; each lets through itself and those\n"
        "before it. A new level takes effect within five seconds.");
    const auto level = std::make_shared<std::string>();
    command->add_option("LEVEL", *level, "The level to set");
    onCommand(command, session, [&session, level] { return showOrSet(session, *level); });
}

} // namespace dmf::tool
