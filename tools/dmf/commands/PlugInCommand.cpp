#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>

#include "PlugInSkeleton.h"
#include "Session.h"

namespace dmf::tool {

namespace {

ExitCode writeSkeleton(Session& session, const std::string& name)
{
    if (!isPlugInName(name))
        throw Failure(ExitCode::wrongCommandLine, "a plug-in's name is a letter and up to 39 letters and digits more");
    Json fields;
    fields["folder"] = std::filesystem::absolute(name).string();
    fields["files"] = writePlugInSkeleton(name, name);
    session.out.result(fields, [&name](const Json& written) {
        std::string text;
        for (const auto& file : written["files"])
            text += name + "/" + file.get<std::string>() + '\n';
        return text + "Build it: cmake -S " + name + " -B " + name + "/build && cmake --build " + name +
               "/build && ctest --test-dir " + name + "/build\n";
    });
    return ExitCode::done;
}

} // namespace

void addPlugInCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(root, "plugin", "Begin a plug-in of one's own", "  dmf plugin new Folder");
    command->require_subcommand(1);
    CLI::App* const begin = addCommand(
        *command, "new", "Write the beginnings of a plug-in, with a test, into a new folder", "  dmf plugin new Folder",
        "The folder NAME is made where one is; it builds and passes its test as it is. "
        "The plug-in serves the connection type NAME.");
    const auto name = std::make_shared<std::string>();
    begin->add_option("NAME", *name, "The plug-in's name: letters and digits")->required();
    onCommand(begin, session, [&session, name] { return writeSkeleton(session, *name); });
}

} // namespace dmf::tool
