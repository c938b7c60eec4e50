#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>
#include <dmf/platform/Class.h>

#include <CLI/CLI.hpp>

#include <algorithm>

#include "MockPlugIns.h"
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

// Some bundles are found by their classes' names alone; once they are loaded the classes tell their interfaces.
void addNamedClasses(const ADMPlugInReport& report, Json& list)
{
    const auto bundle = Bundle::bundleAtPath(report.path);
    const Value named = bundle ? bundle->infoDictionary()[kDMPlugInClasses] : Value();
    const Array names = named.asArray() ? *named.asArray() : named.asString() ? Array{named} : Array();
    for (const auto& name : names) {
        const auto found = name.asString() ? ClassRegistry::shared().classNamed(*name.asString()) : nullptr;
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

std::string forPeople(const Json& fields)
{
    std::string text;
    for (const auto& bundle : fields["bundles"]) {
        text += printable(bundle["path"].get<std::string>()) + ": " + bundle["state"].get<std::string>();
        if (!bundle["reason"].is_null())
            text += ": " + printable(bundle["reason"].get<std::string>());
        text += '\n';
        if (!bundle["mockScheme"].is_null())
            text += "    stands in for devices of scheme " + printable(bundle["mockScheme"].get<std::string>()) + '\n';
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
                   "Each is loaded, or refused and why; below it stand the classes that it names "
                   "by interface.");
    onCommand(command, session, [&session] { return showPlugIns(session); });
}

} // namespace dmf::tool
