#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfoImp.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/DMKeys.h>

#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>

#include "ModelDescription.h"
#include "ModelPack.h"
#include "ReasonLog.h"
#include "Session.h"

namespace dmf::tool {

namespace {

namespace fs = std::filesystem;

struct ValueOptions {
    std::string name, path;
    std::optional<std::string> table, location;
};

Json describeTable(const std::string& table, const std::string& location, const ModelListing& listing)
{
    Json files = Json::array();
    for (const auto& entry : listing.entries)
        if (entry.table == table)
            files.push_back(entry.name);
    return {{"name", table}, {"location", location}, {"files", std::move(files)}};
}

// A table that no program has registered is a folder of the default location; what programs register is theirs alone.
void addTables(Json& tables, const std::string& location, const std::string& only)
{
    std::error_code error;
    if (!fs::is_directory(location, error))
        return;
    const ModelListing listing = listModels(location);
    std::set<std::string> names;
    for (const auto& entry : listing.entries)
        if (only.empty() || entry.table == only)
            names.insert(entry.table);
    for (const auto& name : names)
        tables.push_back(describeTable(name, location, listing));
}

ExitCode list(Session& session)
{
    const auto manager = ADMPrivateModelInfoManager::sharedManager();
    Json fields;
    fields["tables"] = Json::array();
    addTables(fields["tables"], manager->modelInfoPathForTable(kDMFKey), std::string(kDMFKey));
    addTables(fields["tables"], manager->modelInfoPathForTable({}), {});
    fields["families"] = manager->infoFileManager().familyList();
    if (fields["tables"].empty())
        throw Failure(ExitCode::nothingFound, "there is no model database", fields);
    session.out.result(fields, [](const Json& all) {
        std::string text;
        for (const auto& table : all["tables"]) {
            text += printable(table["name"].get<std::string>() + " in " + table["location"].get<std::string>()) + ":\n";
            for (const auto& file : table["files"])
                text += "    " + printable(file.get<std::string>()) + '\n';
        }
        Json families;
        families["families"] = all["families"];
        return text + describe(families);
    });
    return ExitCode::done;
}

ExitCode show(Session& session, const std::string& name)
{
    const Json fields = describeModel(name);
    if (fields.is_null())
        throw Failure(ExitCode::nothingFound, "the model database knows nothing of '" + name + "'");
    session.out.result(fields);
    return ExitCode::done;
}

std::string valueForPeople(const Json& fields)
{
    const Json& value = fields["value"];
    if (value.is_string())
        return printable(value.get<std::string>()) + '\n';
    if (value.is_object())
        return describe(value);
    return describe(fields);
}

ExitCode showValue(Session& session, const ValueOptions& options)
{
    const auto manager = ADMModelInfoManager::sharedManager();
    if (options.location) {
        const ReasonLog log;
        if (!options.table)
            throw Failure(ExitCode::wrongCommandLine, "--location tells where a table lies: name it with --table");
        if (!manager->registerTable(*options.table, fs::absolute(*options.location).string()))
            throw Failure(ExitCode::failed, log.reason());
    }
    const auto model = manager->modelInfoWithModelName(options.name);
    // The library's own table answers to the key itself, not to a text that equals it.
    const std::string_view table = options.table ? std::string_view(*options.table) : kDMFTableName;
    const ReasonLog log;
    const Value value = model->valueForInfoPath(options.path, table);
    if (value.isNull()) {
        const std::string reason = log.reason();
        throw Failure(ExitCode::nothingFound,
                      reason.empty() ? "'" + options.name + "' has no value at '" + options.path + "'" : reason);
    }
    Json fields;
    fields["value"] = toJson(value);
    session.out.result(fields, &valueForPeople);
    return ExitCode::done;
}

} // namespace

void addModelCommand(CLI::App& root, Session& session)
{
    CLI::App* const model =
        addCommand(root, "model", "What the model database knows", "  dmf model show 'QL Aurora 450n'");
    model->require_subcommand(1);

    onCommand(addCommand(*model, "list", "The models, families and tables of the database", "  dmf model list"),
              session, [&session] { return list(session); });

    CLI::App* const showing =
        addCommand(*model, "show", "What a model can do", "  dmf model show 'QL Aurora 450n (USB)'");
    const auto name = std::make_shared<std::string>();
    showing->add_option("NAME", *name, "The model's name, as a device tells it")->required();
    onCommand(showing, session, [&session, name] { return show(session, *name); });

    CLI::App* const valuing =
        addCommand(*model, "value", "The value at a path of a model's tree: an XPath expression in XML files",
                   "  dmf model value 'Aurora 450n' Information/Family");
    const auto options = std::make_shared<ValueOptions>();
    valuing->add_option("NAME", options->name, "The model's name")->required();
    valuing->add_option("PATH", options->path, "The path")->required();
    valuing->add_option("--table", options->table, "A table other than the library's own")->type_name("T");
    valuing->add_option("--location", options->location, "The folder that holds the table's folder")->type_name("DIR");
    onCommand(valuing, session, [&session, options] { return showValue(session, *options); });
}

} // namespace dmf::tool
