#include <dmf/ADMLogger.h>
#include <dmf/DMKeys.h>

#include <CLI/CLI.hpp>

#include <fcntl.h>
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

fs::path logFileOf(const std::string& program)
{
    if (program.empty() || program.find('/') != std::string::npos)
        throw Failure(ExitCode::wrongCommandLine, "'" + program + "' is no name of a program");
    return fs::path(kDMLogConfigPath).parent_path() / ("DMF_" + program + ".log");
}

// A file that was made by whichever user came first is that user's, and the others' lines do not go there. One of
// root's that all may write to is good for everybody. Whatever stands under the name already is looked at before it is
// taken.
void share(const fs::path& path)
{
    makeFolder(path.parent_path());
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int file = ::open(path.c_str(), flags);
    if (file < 0 && errno == ENOENT)
        file = ::open(path.c_str(), flags | O_CREAT | O_EXCL, 0644);
    if (file < 0)
        fail("cannot share " + path.string(), errno);
    struct stat status {};
    const bool isPlain = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
    const bool isShared = isPlain && ::fchown(file, 0, 0) == 0 && ::fchmod(file, 0666) == 0;
    const int error = errno;
    ::close(file);
    if (!isPlain)
        throw Failure(ExitCode::failed, "cannot share " + path.string() + ": it is no regular file of one name");
    if (!isShared)
        fail("cannot share " + path.string(), error);
}

struct LogOptions {
    std::string level;
    std::string shared;
};

ExitCode showOrSet(Session& session, const LogOptions& options)
{
    const std::string& level = options.level;
    const fs::path file = logFileOf(options.shared.empty() ? "dmf" : options.shared);
    if (!options.shared.empty())
        share(file);
    if (!level.empty()) {
        if (ADMLogger::levelValueFromString(level) == ADMLogger::kUnknownLevel)
            throw Failure(ExitCode::wrongCommandLine,
                          "'" + level + "' is no level: nolog, info, warnings, errors, debug, debug2");
        setLevel(level);
    }
    const auto configured = level.empty() ? ADMLogger::environmentLogLevel() : level;
    Json fields;
    fields["level"] = toJson(configured);
    fields["file"] = file.string();
    fields["notWritten"] = toJson(std::optional(ADMLogger::reasonNotToLog(file)));
    if (fields["notWritten"] == "")
        fields["notWritten"] = nullptr;
    session.out.result(fields, [](const Json& all) {
        const bool none = all["level"].is_null();
        return "level: " + (none ? "none: nothing is logged" : printable(all["level"].get<std::string>())) +
               "\nfile:  " + printable(all["file"].get<std::string>()) +
               (all["notWritten"].is_null()
                    ? ""
                    : "\n       not written by this user: " + printable(all["notWritten"].get<std::string>())) +
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
        "before it. A new level takes effect within five seconds. A program's log belongs to the user who ran it\n"
        "first, and the same program of another user does not write there; --shared makes it everybody's.");
    const auto options = std::make_shared<LogOptions>();
    command->add_option("LEVEL", options->level, "The level to set");
    command->add_option("--shared", options->shared, "As root: make that program's log one for all users")
        ->type_name("PROGRAM");
    onCommand(command, session, [&session, options] { return showOrSet(session, *options); });
}

} // namespace dmf::tool
