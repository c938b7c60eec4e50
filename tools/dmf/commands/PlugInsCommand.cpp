#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/PlugInFolders.h>
#include <dmf/platform/Bundle.h>
#include <dmf/platform/Class.h>

#include <CLI/CLI.hpp>

#include <algorithm>

#include "MockPlugIns.h"
#include "PlugInDescription.h"
#include "Session.h"

namespace dmf::tool {

namespace {

const char* stateName(ADMPlugInReport::State state)
{
    switch (state) {
    case ADMPlugInReport::State::refused: return "refused";
    case ADMPlugInReport::State::described: return "described";
    case ADMPlugInReport::State::loaded: return "loaded";
    }
    return "unknown";
}

const char* originName(PlugInFolder::Origin origin)
{
    switch (origin) {
    case PlugInFolder::Origin::library: return "library";
    case PlugInFolder::Origin::program: return "program";
    case PlugInFolder::Origin::environment: return "DMF_PLUGIN_PATH";
    }
    return "unknown";
}

Json describeFolders()
{
    Json folders = Json::array();
    for (const auto& folder : plugInFolders())
        folders.push_back({{"path", folder.path}, {"origin", originName(folder.origin)}});
    return folders;
}

// What the description says besides the classes that it names.
void addDescription(const std::string& path, Json& fields)
{
    const auto bundle = Bundle::bundleAtPath(path);
    const Dictionary description = bundle ? bundle->infoDictionary() : Dictionary();
    fields["types"] = textsUnder(description, kDMServiceConnectionType);
    fields["channels"] = textsUnder(description, "DMChannelNames");
    fields["misspelt"] = Json::array();
    for (const auto& [word, meant] : misspellingsIn(description))
        fields["misspelt"].push_back({{"word", word}, {"meant", meant}});
}

// Some bundles are found by their classes' names alone; once they are loaded the classes tell their interfaces.
void addNamedClasses(const ADMPlugInReport& report, Json& list)
{
    const auto bundle = Bundle::bundleAtPath(report.path);
    for (const auto& name : textsUnder(bundle ? bundle->infoDictionary() : Dictionary(), kDMPlugInClasses)) {
        const auto found = ClassRegistry::shared().classNamed(name);
        if (!found)
            continue;
        for (const Protocol* const protocol : found->protocols()) {
            const Json entry{{"interface", protocol->name()}, {"class", found->name()}};
            if (std::find(list.begin(), list.end(), entry) == list.end())
                list.push_back(entry);
        }
    }
}

Json describeBundle(const ADMPlugInReport& report)
{
    Json bundle;
    bundle["path"] = report.path;
    bundle["state"] = stateName(report.state);
    bundle["kept"] = report.kept;
    bundle["reason"] = report.reason.empty() ? Json(nullptr) : Json(report.reason);
    bundle["mockScheme"] = report.mockScheme.empty() ? Json(nullptr) : Json(report.mockScheme);
    addDescription(report.path, bundle);
    bundle["classes"] = Json::array();
    for (const auto& implementor : report.implementors) {
        Json entry;
        entry["interface"] = implementor.interfaceName;
        entry["class"] = implementor.className;
        if (!implementor.reason.empty())
            entry["reason"] = implementor.reason;
        bundle["classes"].push_back(std::move(entry));
    }
    addNamedClasses(report, bundle["classes"]);
    return bundle;
}

std::string inOneLine(const Json& texts)
{
    std::string line;
    for (const auto& text : texts)
        line += (line.empty() ? "" : ", ") + printable(text.get<std::string>());
    return line;
}

std::string forPeople(const Json& fields)
{
    std::string text;
    for (const auto& folder : fields["folders"]) {
        if (folder["origin"] != originName(PlugInFolder::Origin::library))
            text += "plug-ins of " + folder["origin"].get<std::string>() + ": " +
                    printable(folder["path"].get<std::string>()) + '\n';
    }
    for (const auto& bundle : fields["bundles"]) {
        text += printable(bundle["path"].get<std::string>()) + ": " + bundle["state"].get<std::string>();
        if (!bundle["reason"].is_null())
            text += ": " + printable(bundle["reason"].get<std::string>());
        text += '\n';
        if (!bundle["mockScheme"].is_null())
            text += "    stands in for devices of scheme " + printable(bundle["mockScheme"].get<std::string>()) + '\n';
        if (!bundle["types"].empty())
            text += "    serves connection type " + inOneLine(bundle["types"]) + '\n';
        if (!bundle["channels"].empty())
            text += "    channels: " + inOneLine(bundle["channels"]) + '\n';
        for (const auto& word : bundle["misspelt"])
            text += "    '" + printable(word["word"].get<std::string>()) + "' in its description: did you mean '" +
                    word["meant"].get<std::string>() + "'?\n";
        for (const auto& entry : bundle["classes"]) {
            text += "    " + printable(entry["interface"].get<std::string>()) + ": " +
                    printable(entry["class"].get<std::string>());
            text += entry.contains("reason") ? " (" + printable(entry["reason"].get<std::string>()) + ")\n" : "\n";
        }
    }
    return text;
}

ExitCode showPlugIns(Session& session)
{
    const auto manager = ADMPlugInManager::sharedManager();
    // The shipped mock plug-ins lie outside the manager's own folders.
    manager->loadPlugInFromBaseDir(shippedMockPlugInsPath(), {});
    Json fields;
    fields["folders"] = describeFolders();
    fields["bundles"] = Json::array();
    for (const auto& report : manager->examineAllPlugIns())
        fields["bundles"].push_back(describeBundle(report));
    if (fields["bundles"].empty())
        throw Failure(ExitCode::nothingFound, "there are no plug-ins", fields);
    session.out.result(fields, &forPeople);
    return ExitCode::done;
}

} // namespace

void addPlugInsCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "plugins", "Every plug-in bundle that the library looks at", "  dmf plugins",
                   "Each is loaded, or refused and why; below it stand its connection types and channels, and the "
                   "classes that it names by interface. Folders that the environment variable DMF_PLUGIN_PATH names, "
                   "separated by colons, are looked at too.");
    onCommand(command, session, [&session] { return showPlugIns(session); });
}

} // namespace dmf::tool
