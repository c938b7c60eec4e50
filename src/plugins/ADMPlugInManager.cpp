#include <dmf/ADMPlugInManager.h>

#include <dirent.h>

#include <dmf/ADMIOProvider.h>
#include <dmf/DMDictionaryExtension.h>
#include <dmf/DMKeys.h>
#include <dmf/PlugInFolders.h>
#include <dmf/platform/Format.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "foundation/logging/AfterFork.h"
#include "platform/host/Host.h"
#include "plugins/PlugInReports.h"
#include "plugins/PlugInRules.h"

using dmf::Bundle;
using dmf::Class;
using dmf::ClassRegistry;
using dmf::Dictionary;
using dmf::Protocol;
using dmf::internal::Host;

namespace {

using FoundClass = std::shared_ptr<const Class>;

std::string regularKey(const Protocol& protocol, const Dictionary& matching)
{
    return dmf::formatted("%@_%x", protocol.name(), dmf::Value(matching.description()).hash());
}

std::string mockKey(const dmf::Value& scheme, std::string_view interfaceName)
{
    return dmf::formatted("%@_%@", scheme, interfaceName);
}

// Sorted, so that which of two plug-ins wins does not hang on how the folder came about.
std::vector<std::string> entriesOf(const std::string& folder)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), &::closedir);
    if (!listing)
        return names;
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::vector<std::string> regularFolders()
{
    std::vector<std::string> paths;
    for (auto& folder : dmf::plugInFolders())
        paths.push_back(std::move(folder.path));
    return paths;
}

} // namespace

struct ADMPlugInManager::Private {
    std::mutex lock; // never held while a folder is searched: plug-ins may ask the manager as they are loaded
    std::map<std::string, FoundClass> registry; // guarded by lock
    std::uint64_t generation = 0;               // of the host that the registry belongs to; guarded by lock
    dmf::internal::PlugInReports reports;

    // Called with the lock held.
    std::map<std::string, FoundClass>& registryOfHost()
    {
        if (generation != Host::generation()) {
            registry.clear();
            generation = Host::generation();
        }
        return registry;
    }

    bool load(Bundle& bundle)
    {
        std::string reason;
        const bool isLoaded = bundle.load(&reason);
        if (isLoaded)
            reports.noteLoaded(bundle);
        else
            reports.noteNotLoaded(bundle, reason);
        return isLoaded;
    }

    FoundClass registered(const std::string& key)
    {
        std::lock_guard guard(lock);
        const auto known = registryOfHost().find(key);
        return known == registry.end() ? nullptr : known->second;
    }

    /// The registered class, else the first that a bundle names, that exists once it is loaded and that is accepted. Of
    /// two threads that search for one key at once, both get what the first one found.
    template <class Folders, class NameOf, class Accepts>
    FoundClass search(ADMPlugInManager& manager, const std::string& key, Folders folders, const Dictionary& matching,
                      NameOf nameOf, Accepts accepts)
    {
        if (dmf::internal::isRefusedAfterFork())
            return nullptr;
        if (auto known = registered(key))
            return known;
        for (const std::string& folder : folders()) { // asked for here only: most requests are answered above
            for (const auto& bundle : manager.pluginsFromBaseDir(folder, matching)) {
                const auto name = nameOf(bundle->infoDictionary());
                if (!name || !load(*bundle))
                    continue;
                FoundClass found = ClassRegistry::shared().classNamed(*name);
                if (!found || !accepts(*found))
                    continue;
                std::lock_guard guard(lock);
                return registryOfHost().try_emplace(key, found).first->second;
            }
        }
        return nullptr; // not remembered: a plug-in that is added later is found
    }
};

ADMPlugInManager::ADMPlugInManager() : private_(std::make_unique<Private>()) {}
ADMPlugInManager::~ADMPlugInManager() = default;

std::shared_ptr<ADMPlugInManager> ADMPlugInManager::sharedManager()
{
    static const auto* const shared = new std::shared_ptr<ADMPlugInManager>(new ADMPlugInManager);
    return *shared;
}

FoundClass ADMPlugInManager::implementorForProtocol(const Protocol& protocol, const Dictionary& matching)
{
    return isMockPlugInRequested(matching) ? mockImplementorForProtocol(protocol, matching)
                                           : regularImplementorForProtocol(protocol, matching);
}

FoundClass ADMPlugInManager::regularImplementorForProtocol(const Protocol& protocol, const Dictionary& matching)
{
    return private_->search(
        *this, regularKey(protocol, matching), &regularFolders, matching,
        [&](const Dictionary& info) { return implementorNameForProtocolRegularPlugInInfo(protocol, info); },
        [&](const Class& found) { return found.conformsTo(protocol); });
}

FoundClass ADMPlugInManager::mockImplementorForProtocol(const Protocol& protocol, const Dictionary& matching)
{
    return private_->search(
        *this, mockKey(matching[kDMMockScheme], protocol.name()), [&] { return std::vector{mockPlugInsPath()}; },
        matching, [&](const Dictionary& info) { return implementorNameForProtocolMockPlugInInfo(protocol, info); },
        &dmf::internal::isMockImplementor);
}

bool ADMPlugInManager::isMockPlugInRequested(const Dictionary& matching) const
{
    return matching.contains(kDMMockScheme);
}

bool ADMPlugInManager::loadPlugInMatching(const Dictionary& matching)
{
    bool any = false;
    for (const std::string& folder :
         isMockPlugInRequested(matching) ? std::vector{mockPlugInsPath()} : regularFolders())
        any = loadPlugInFromBaseDir(folder, matching) || any;
    return any;
}

bool ADMPlugInManager::loadPlugInForClass(const FoundClass& aClass, const Dictionary& matching)
{
    if (!aClass)
        return false;
    return loadPlugInFromBaseDir(Bundle::bundleForAddress(aClass->anchor())->builtInPlugInsPath(), matching);
}

bool ADMPlugInManager::loadPlugInFromBaseDir(const std::string& baseDir, const Dictionary& matching)
{
    const bool wantsMocks = isMockPlugInRequested(matching);
    bool any = false;
    for (const auto& bundle : pluginsFromBaseDir(baseDir, matching)) {
        if (!wantsMocks || dmf::internal::isCompleteMock(bundle->infoDictionary()))
            any = private_->load(*bundle) || any;
    }
    return any;
}

std::vector<std::shared_ptr<Bundle>> ADMPlugInManager::pluginsFromBaseDir(const std::string& baseDir,
                                                                          const Dictionary& matching)
{
    std::vector<std::shared_ptr<Bundle>> kept;
    const std::string folder = dmf::internal::normalFolder(baseDir);
    const auto names = entriesOf(folder);
    private_->reports.forgetGone(folder, names);
    for (const std::string& name : names) {
        if (!name.ends_with(".bundle"))
            continue;
        const std::string path = folder + "/" + name;
        std::string reason;
        auto bundle = Bundle::bundleAtPath(path, &reason);
        if (!bundle) {
            private_->reports.noteUnusable(path, reason);
            continue;
        }
        const bool matches = com_ql_dmf_containsObjectsFromDictionary(bundle->infoDictionary(), matching);
        private_->reports.noteDescribed(*bundle, matches);
        if (matches)
            kept.push_back(std::move(bundle));
    }
    return kept;
}

std::optional<std::string> ADMPlugInManager::implementorNameForProtocolRegularPlugInInfo(const Protocol& protocol,
                                                                                         const Dictionary& info) const
{
    return dmf::internal::regularImplementorName(protocol.name(), info);
}

std::optional<std::string> ADMPlugInManager::implementorNameForProtocolMockPlugInInfo(const Protocol& protocol,
                                                                                      const Dictionary& info) const
{
    return dmf::internal::mockImplementorName(protocol.name(), info);
}

void ADMPlugInManager::registerMockImplementors(const Dictionary& info)
{
    const auto scheme = info.string(kDMMockScheme);
    const auto providerName = info.string(kDMMockIOProvider);
    if (!scheme || !providerName)
        return;
    const auto provider = ClassRegistry::shared().classNamed(*providerName);
    if (!provider || !provider->conformsTo(ADMIOProvider::protocol()))
        return;
    const auto store = [&](std::string_view interfaceName, const FoundClass& stored) {
        std::lock_guard guard(private_->lock);
        private_->registryOfHost()[mockKey(*scheme, interfaceName)] = stored;
    };
    store(ADMIOProvider::protocol().name(), provider);
    const auto* factories = info[kDMMockFactories].asDictionary();
    if (!factories)
        return;
    for (const auto& [label, factory] : *factories) {
        if (!factory.asDictionary())
            continue;
        for (const auto& [interfaceName, className] : *factory.asDictionary()) {
            const auto found = ClassRegistry::shared().classNamed(className.string().value_or(""));
            if (found && dmf::internal::isFunctionalService(*found))
                store(interfaceName, found);
        }
    }
}

void ADMPlugInManager::unregisterMockImplementorsForScheme(std::string_view scheme)
{
    if (scheme.empty())
        return;
    // In lower case, though registering keeps the scheme as it is given: requests always ask in lower case.
    const std::string prefix = dmf::lowercased(scheme);
    std::lock_guard guard(private_->lock);
    std::erase_if(private_->registryOfHost(), [&](const auto& entry) { return entry.first.starts_with(prefix); });
}

std::string ADMPlugInManager::mockPlugInsPath() const
{
    return Host::current().path("/var/cache/DMF/MockPlugIns");
}

std::vector<ADMPlugInReport> ADMPlugInManager::reports() const
{
    if (dmf::internal::isRefusedAfterFork())
        return {};
    return private_->reports.all();
}

std::vector<ADMPlugInReport> ADMPlugInManager::examineAllPlugIns()
{
    if (dmf::internal::isRefusedAfterFork())
        return {};
    for (const std::string& folder : regularFolders()) {
        for (const auto& bundle : pluginsFromBaseDir(folder, {}))
            private_->load(*bundle);
    }
    for (const auto& bundle : pluginsFromBaseDir(mockPlugInsPath(), {})) {
        if (dmf::internal::isServingMock(bundle->infoDictionary()))
            private_->load(*bundle);
        else
            private_->reports.noteNotLoaded(*bundle, "it does not name both its scheme and a class that serves it");
    }
    return reports();
}
