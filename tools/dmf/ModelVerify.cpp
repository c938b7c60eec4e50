#include <map>
#include <memory>
#include <set>
#include <utility>

#include <dmf/ADMInfo.h>
#include <dmf/ADMPlistModelInfoHandler.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLModelInfoHandler.h>
#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLParserFactory.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/PropertyList.h>
#include <dmf/platform/Unicode.h>

#include "ModelPack.h"

namespace dmf::tool {

namespace {

using Info = std::shared_ptr<ADMInfo>;

/// The library cuts longer chains.
constexpr std::size_t kMaximumGenerations = 256;

/// The contents of one file, with what it inherits once it has been merged.
struct Model {
    const ModelEntry* entry = nullptr;
    std::shared_ptr<ADMXMLElementImp> element; ///< of an XML document
    std::optional<dmf::Dictionary> dictionary; ///< of a property list
    std::optional<std::string> parent;
    enum class State { fresh, merging, merged } state = State::fresh;
};

std::vector<Info> children(const Info& node, std::string_view name)
{
    std::vector<Info> found;
    for (Info& child : node->allInfos()) {
        if (child->name() == name)
            found.push_back(std::move(child));
    }
    return found;
}

std::string property(const Info& node, std::string_view name)
{
    const auto properties = node->properties();
    return properties ? properties->string(name).value_or("") : "";
}

class Verifier {
public:
    explicit Verifier(ModelListing& listing) : problems_(listing.problems)
    {
        for (const ModelEntry& entry : listing.entries)
            parse(entry);
    }

    void verify()
    {
        for (auto& [key, model] : models_) {
            merge(model, 0);
            if (model.element)
                verifyTree(model);
        }
    }

private:
    void problem(const Model& model, std::string message)
    {
        problems_.push_back({model.entry->table + '/' + model.entry->name, std::move(message)});
    }

    void parse(const ModelEntry& entry)
    {
        Model model;
        model.entry = &entry;
        std::string reason;
        if (entry.ending == ".xml") {
            const auto parser = ADMXMLParserFactory::defaultFactory().defaultParser();
            reason = "there is no XML parser among the plug-ins";
            model.element = parser ? parser->parseData(entry.contents, &reason) : nullptr;
            const Info parent = model.element ? model.element->infoNamed(kDMParentNameKey) : nullptr;
            model.parent = parent ? parent->stringValue() : std::nullopt;
        } else if (const auto value = dmf::PropertyList::parse(entry.contents.bytes(), &reason)) {
            if (value->asDictionary())
                model.dictionary = *value->asDictionary();
            model.parent = model.dictionary ? model.dictionary->string(kDMParentNameKey) : std::nullopt;
            reason = "it holds no dictionary";
        }
        if (model.element || model.dictionary)
            models_.emplace(std::pair(entry.table, entry.name), std::move(model));
        else
            problem(model, "does not parse: " + reason);
    }

    /// Brings in what the model inherits; parents first.
    void merge(Model& model, std::size_t generation)
    {
        if (model.state != Model::State::fresh)
            return;
        model.state = Model::State::merging;
        if (model.parent) {
            const auto parent = models_.find(std::pair(model.entry->table, dmf::lowercased(*model.parent)));
            if (parent == models_.end())
                problem(model, "names the parent '" + *model.parent + "', which there is not");
            else if (generation == kMaximumGenerations)
                problem(model, "ends a chain of too many parents");
            else
                inherit(model, parent->second, generation);
        }
        model.state = Model::State::merged;
    }

    void inherit(Model& model, Model& parent, std::size_t generation)
    {
        merge(parent, generation + 1);
        if (parent.state == Model::State::merging)
            problem(model, "closes a circle of parents by its parent '" + *model.parent + "'");
        else if (model.element && parent.element)
            inheritElements(model.element, parent.element);
        else if (model.dictionary && parent.dictionary)
            model.dictionary = ADMPlistModelInfoHandler::mergeModelInfo(*model.dictionary, *parent.dictionary);
        else
            problem(model, "names the parent '" + *model.parent + "', which is in the other format");
    }

    static void inheritElements(const std::shared_ptr<ADMXMLElementImp>& root,
                                const std::shared_ptr<ADMXMLElementImp>& parent)
    {
        if (root->isMatrix() && parent->isMatrix())
            ADMXMLModelInfoHandler::mergeXMLElement(root, parent);
        else
            ADMXMLModelInfoHandler::addXMLElements(parent->children(), root);
    }

    void verifyTree(const Model& model)
    {
        for (const Info& deviceClass : children(model.element, kDMDeviceClassKey)) {
            const std::string className = property(deviceClass, kDMName);
            verifyLowerCase(model, "device class", className);
            for (const Info& interface : children(deviceClass, kDMFunctionalInterface)) {
                const std::string name = property(interface, kDMName);
                verifyLowerCase(model, "functional interface", name);
                verifyInterface(model, interface, className + '.' + name);
            }
        }
    }

    void verifyInterface(const Model& model, const Info& interface, const std::string& name)
    {
        std::set<std::string> services;
        for (const Info& list : children(interface, kDMServiceListKey)) {
            for (const Info& service : children(list, kDMServiceKey))
                services.insert(property(service, kDMName));
        }
        const auto verifyReferences = [&](const Info& list, const std::string& where) {
            for (const Info& reference : children(list, kDMServiceKey)) {
                const std::string service = property(reference, kDMName);
                if (!services.contains(service))
                    problem(model,
                            "names the service '" + service + "' for " + where + ", which " + name + " does not have");
            }
        };
        for (const std::string_view listName : {kDMConnectionListKey, kDMProtocolSpecificConnectionList}) {
            for (const Info& list : children(interface, listName)) {
                for (const Info& connection : children(list, kDMConnectionKey)) {
                    const std::string type = property(connection, kDMType);
                    verifyLowerCase(model, "connection type", type);
                    verifyReferences(connection, type);
                    for (const Info& protocol : children(connection, kDMProtocolKey))
                        verifyReferences(protocol, property(protocol, kDMName) + " over " + type);
                }
            }
        }
    }

    void verifyLowerCase(const Model& model, std::string_view what, const std::string& name)
    {
        if (name.empty())
            problem(model, "has a " + std::string(what) + " without a name");
        else if (name != dmf::lowercased(name))
            problem(model, "has the " + std::string(what) + " '" + name + "', which is only found in lower case");
    }

    std::vector<ModelProblem>& problems_;
    std::map<std::pair<std::string, std::string>, Model> models_; // by table and name
};

} // namespace

ModelCounts verifyModels(const std::filesystem::path& database)
{
    ModelListing listing = listModels(database);
    Verifier(listing).verify();
    ModelCounts counts;
    std::set<std::string> tables;
    for (const ModelEntry& entry : listing.entries) {
        tables.insert(entry.table);
        counts.bytes += entry.contents.size();
    }
    counts.tables = tables.size();
    counts.files = listing.entries.size();
    counts.problems = std::move(listing.problems);
    return counts;
}

} // namespace dmf::tool
