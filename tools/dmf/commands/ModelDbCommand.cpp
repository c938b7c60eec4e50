#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>
#include <optional>

#include "ModelPack.h"
#include "Session.h"

namespace dmf::tool {

namespace {

namespace fs = std::filesystem;

void requireFolder(const std::string& path)
{
    std::error_code error;
    if (!fs::is_directory(path, error))
        throw Failure(ExitCode::failed, error ? path + ": " + error.message() : path + " is not a folder");
}

Json describeProblems(const std::vector<ModelProblem>& problems)
{
    Json list = Json::array();
    for (const auto& problem : problems)
        list.push_back({{"file", problem.file}, {"message", problem.message}});
    return list;
}

std::string counted(std::size_t count, const std::string& thing)
{
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

// Problems go to standard error, one a line, for people as well as for editors that jump to them.
[[noreturn]] void failWithProblems(Session& session, const std::vector<ModelProblem>& problems, const Json& fields)
{
    for (const auto& problem : problems)
        session.out.note(printable(problem.file + ": " + problem.message));
    throw Failure(ExitCode::failed, counted(problems.size(), "problem"), fields);
}

ExitCode finish(Session& session, const ModelCounts& counts, const std::string& verb)
{
    Json fields;
    fields["tables"] = counts.tables;
    fields["files"] = counts.files;
    fields["bytes"] = counts.bytes;
    fields["problems"] = describeProblems(counts.problems);
    if (!counts.problems.empty())
        failWithProblems(session, counts.problems, fields);
    if (counts.files == 0)
        throw Failure(ExitCode::nothingFound, "there are no model files", fields);
    session.out.result(fields, [&](const Json&) {
        return verb + ' ' + counted(counts.files, "file") + " in " + counted(counts.tables, "table") + ", " +
               byteCount(counts.bytes) + '\n';
    });
    return ExitCode::done;
}

ExitCode list(Session& session, const std::string& database)
{
    const ModelListing listing = listModels(database);
    Json fields;
    fields["files"] = Json::array();
    for (const auto& entry : listing.entries)
        fields["files"].push_back({{"table", entry.table},
                                   {"name", entry.name},
                                   {"format", entry.ending.substr(1)},
                                   {"bytes", entry.contents.size()}});
    fields["problems"] = describeProblems(listing.problems);
    if (listing.entries.empty() && listing.problems.empty())
        throw Failure(ExitCode::nothingFound, "there are no model files", fields);
    session.out.result(fields, [](const Json& all) {
        std::string text;
        for (const auto& file : all["files"])
            text += printable(file["table"].get<std::string>() + '/' + file["name"].get<std::string>()) + "  (" +
                    file["format"].get<std::string>() + ", " + byteCount(file["bytes"].get<std::uint64_t>()) + ")\n";
        return text;
    });
    // The list stands; what could not be listed makes the run a failure all the same.
    if (!listing.problems.empty())
        failWithProblems(session, listing.problems, fields);
    return ExitCode::done;
}

struct Folders {
    std::string from, to;
};

} // namespace

void addModelDbCommand(CLI::App& root, Session& session)
{
    CLI::App* const modeldb =
        addCommand(root, "modeldb", "Makes, opens up, lists and checks enciphered model databases",
                   "  dmf modeldb pack models /tmp/database");
    modeldb->require_subcommand(1);
    const auto folders = std::make_shared<Folders>();

    CLI::App* const packing = addCommand(
        *modeldb, "pack", "Enciphers model files into a database", "  dmf modeldb pack models /tmp/database",
        "In the source each file is SOURCE/TABLE/COMPONENT/.../NAME.xml or .plist; the path below the table\n"
        "without the ending is its logical name.");
    packing->add_option("SOURCE", folders->from, "The folder of the tables' folders")->required();
    packing->add_option("DATABASE", folders->to, "The database; files of other names in it stay")->required();
    onCommand(packing, session, [&session, folders] {
        requireFolder(folders->from);
        return finish(session, packModels(folders->from, folders->to), "packed");
    });

    CLI::App* const unpacking = addCommand(*modeldb, "unpack", "Writes the files of a database in plain text",
                                           "  dmf modeldb unpack /tmp/database /tmp/models");
    unpacking->add_option("DATABASE", folders->from, "The database")->required();
    unpacking->add_option("TARGET", folders->to, "The folder to write to")->required();
    onCommand(unpacking, session, [&session, folders] {
        requireFolder(folders->from);
        return finish(session, unpackModels(folders->from, folders->to), "unpacked");
    });

    CLI::App* const listing =
        addCommand(*modeldb, "list", "Lists the files of a database", "  dmf modeldb list /tmp/database");
    listing->add_option("DATABASE", folders->from, "The database")->required();
    onCommand(listing, session, [&session, folders] {
        requireFolder(folders->from);
        return list(session, folders->from);
    });

    CLI::App* const verifying = addCommand(
        *modeldb, "verify", "Looks for what would keep a model from being found or from working",
        "  dmf modeldb verify /tmp/database",
        "Finds files that do not decipher or parse, missing parents, circles of parents, and connections that name\n"
        "unknown services.");
    verifying->add_option("DATABASE", folders->from, "The database")->required();
    onCommand(verifying, session, [&session, folders] {
        requireFolder(folders->from);
        return finish(session, verifyModels(folders->from), "checked");
    });
}

} // namespace dmf::tool
