#include <dmf/ADMModelInfoImp.h>

#include <map>
#include <mutex>
#include <utility>

#include <dmf/ADMFunctionalInfo.h>
#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfoHandler.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMTransportInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>

#include "modelinfo/files/ModelInfoLog.h"
#include "modelinfo/files/Spared.h"
#include "modelinfo/model/InfoQueries.h"

using namespace dmf::internal;

struct ADMModelInfoImp::State {
    explicit State(std::string_view name) : modelName(name) {}

    void forgetTable(const dmf::Notification& notification)
    {
        const auto table = notification.userInfo.string(kDMModelInfoChangedTableKey);
        if (!table)
            return;
        std::lock_guard guard(lock);
        roots.erase(*table);
        ++changes;
    }

    const std::string modelName; // as it was given
    /// Held for a step in the tables below only, never while files are read or looked for: a table may be registered
    /// by a plug-in that is being loaded, and reading a file may have to wait for the loader.
    std::mutex lock;
    std::map<std::string, Info, std::less<>> roots; // by the table read; guarded by lock
    std::uint64_t changes = 0;                      // of locations; a search that one overtook keeps nothing
    /// By interface name and connection type; guarded by lock.
    std::map<std::pair<std::string, std::string>, std::shared_ptr<ADMFunctionalInfo>> functionalInfos;
    Info information; // guarded by lock; kept once it is found
};

namespace {

constexpr std::string_view kSeparator = "/";

std::string joined(std::string_view first, std::string_view second)
{
    return std::string(first).append(kSeparator).append(second);
}

/// The logical names of the files that can describe a model in a table, best first. Programs prefer their table's
/// default to a file below "ModelName"; the reserved table goes from the model by its family to the default.
std::vector<std::string> candidates(const std::string& model, bool reserved)
{
    std::vector<std::string> names;
    if (reserved) {
        names.push_back(joined(kDMModelName, model));
        if (const auto family = ADMPrivateModelInfoManager::sharedManager()->familyNameForModel(model))
            names.push_back(joined(kDMFamilyName, *family));
    } else {
        names.push_back(model);
        names.emplace_back(kDMDefaultModelFile);
        names.push_back(joined(kDMModelName, model));
    }
    names.push_back(joined(kDMModelName, kDMDefaultModelName));
    return names;
}

/// The two last parts of a dotted name, in lower case: device class and interface.
std::optional<std::pair<std::string, std::string>> lastTwoParts(std::string_view name)
{
    const std::size_t last = name.rfind('.');
    if (last == std::string_view::npos)
        return std::nullopt;
    const std::string_view before = name.substr(0, last);
    const std::size_t previous = before.rfind('.');
    const std::string_view deviceClass = previous == std::string_view::npos ? before : before.substr(previous + 1);
    return std::pair(dmf::lowercased(deviceClass), dmf::lowercased(name.substr(last + 1)));
}

} // namespace

ADMModelInfoImp::ADMModelInfoImp(std::string_view modelName)
    : state_(std::make_shared<State>(modelName)),
      observation_(dmf::NotificationCenter::defaultCenter().addObserver(
          kDMModelInfoTableLocationDidChangeNotification,
          [observer = std::weak_ptr(state_)](const dmf::Notification& notification) {
              if (const auto state = observer.lock())
                  state->forgetTable(notification);
          }))
{
}

ADMModelInfoImp::~ADMModelInfoImp() = default;

std::string ADMModelInfoImp::modelName() const
{
    return state_->modelName;
}

std::optional<std::string> ADMModelInfoImp::vendorName()
{
    return informationText(kDMVendorNameKey);
}

std::optional<std::string> ADMModelInfoImp::familyName()
{
    return informationText(kDMFamilyKey);
}

std::optional<std::string> ADMModelInfoImp::pathToIcon()
{
    return informationText(kDMPathToIconKey);
}

std::optional<std::string> ADMModelInfoImp::utilityName()
{
    return informationText(kDMUtilityNameKey);
}

std::optional<std::string> ADMModelInfoImp::utilitySignature()
{
    return informationText(kDMUtilitySignatureKey);
}

std::optional<std::string> ADMModelInfoImp::modelCodeName()
{
    return informationText(kDMModelCodeNameKey);
}

std::optional<std::string> ADMModelInfoImp::modelId()
{
    return informationText(kDMModelIdKey);
}

std::optional<std::string> ADMModelInfoImp::informationText(std::string_view key)
{
    return spared("looking for a text about a model",
                  [&]() -> std::optional<std::string> { return text(child(information(), key)); });
}

std::shared_ptr<ADMInfo> ADMModelInfoImp::information()
{
    return spared("looking for what is said about a model", [&]() -> Info {
        {
            std::lock_guard guard(state_->lock);
            if (state_->information)
                return state_->information;
        }
        auto found = child(infoFromTable(kDMFTableName), kDMInformationKey);
        std::lock_guard guard(state_->lock);
        if (!state_->information)
            state_->information = std::move(found);
        return state_->information;
    });
}

std::vector<Info> ADMModelInfoImp::infoForPath(std::string_view path, std::string_view table)
{
    return spared("looking for a path", [&]() -> std::vector<Info> {
        const Info root = infoFromTable(table);
        return root ? root->infoForPath(path) : std::vector<Info>();
    });
}

dmf::Value ADMModelInfoImp::valueForInfoPath(std::string_view path, std::string_view table)
{
    return spared("looking for a value", [&]() -> dmf::Value {
        const auto nodes = infoForPath(path, table);
        return nodes.empty() ? dmf::Value() : nodes.front()->value();
    });
}

std::shared_ptr<ADMTransportInfo> ADMModelInfoImp::transportInfo()
{
    return spared("looking for a transport", [&]() -> std::shared_ptr<ADMTransportInfo> {
        return ADMTransportInfo::initWithInfo(child(infoFromTable(kDMFTableName), kDMTransportKey));
    });
}

std::shared_ptr<ADMInfo> ADMModelInfoImp::functionalInterfaceInfoWithName(std::string_view name)
{
    return spared("looking for a functional interface", [&]() -> Info {
        const auto parts = lastTwoParts(name);
        if (!parts)
            return nullptr;
        const Info deviceClass = child(infoFromTable(kDMFTableName), kDMDeviceClassKey, kDMName, parts->first);
        return child(deviceClass, kDMFunctionalInterface, kDMName, parts->second);
    });
}

std::vector<std::string> ADMModelInfoImp::availableFunctionalInterfacesForServiceName(std::string_view deviceClassName)
{
    return spared("listing functional interfaces", [&]() -> std::vector<std::string> {
        std::vector<std::string> names;
        const Info deviceClass =
            child(infoFromTable(kDMFTableName), kDMDeviceClassKey, kDMName, dmf::lowercased(deviceClassName));
        for (const Info& interface : children(deviceClass, kDMFunctionalInterface)) {
            if (auto name = property(interface, kDMName))
                names.push_back(*std::move(name));
        }
        if (names.empty())
            logModelInfo("debug",
                         "ModelInfo: the model info file of device '%@' doesn't contain functional interfaces for '%@' "
                         "service",
                         state_->modelName, deviceClassName);
        return names;
    });
}

std::vector<std::string> ADMModelInfoImp::availableProtocolsForFunctionalInterface(std::string_view interfaceName)
{
    return spared("listing protocols", [&]() -> std::vector<std::string> {
        std::vector<std::string> names;
        const std::string wanted = dmf::lowercased(interfaceName);
        for (const Info& deviceClass : children(infoFromTable(kDMFTableName), kDMDeviceClassKey)) {
            const Info interface = child(deviceClass, kDMFunctionalInterface, kDMName, wanted);
            for (const Info& service : children(child(interface, kDMServiceListKey))) {
                if (auto name = property(service, kDMName))
                    names.push_back(*std::move(name));
            }
        }
        if (names.empty())
            logModelInfo("debug",
                         "ModelInfo: the functional interface '%@' of device '%@' doesn't contain available protocols",
                         interfaceName, state_->modelName);
        return names;
    });
}

std::shared_ptr<ADMFunctionalInfo> ADMModelInfoImp::functionalInfo(std::string_view interfaceName,
                                                                   std::string_view connectionType)
{
    return spared("looking for a functional interface", [&]() -> std::shared_ptr<ADMFunctionalInfo> {
        std::pair<std::string, std::string> key(interfaceName, connectionType);
        {
            std::lock_guard guard(state_->lock);
            const auto known = state_->functionalInfos.find(key);
            if (known != state_->functionalInfos.end())
                return known->second;
        }
        if (auto made =
                ADMFunctionalInfo::initWithInfo(functionalInterfaceInfoWithName(interfaceName), connectionType)) {
            std::lock_guard guard(state_->lock);
            return state_->functionalInfos.emplace(std::move(key), std::move(made))
                .first->second; // the first one's counts
        }
        logModelInfo("debug",
                     "ModelInfo: the model info file of device '%@' doesn't contain the functional info '%@' for '%@' "
                     "connection",
                     state_->modelName, interfaceName, connectionType);
        return nullptr;
    });
}

std::shared_ptr<ADMInfo> ADMModelInfoImp::infoFromTable(std::string_view table)
{
    return spared("looking for a model", [&]() -> Info {
        if (table == kDMFKey)
            return nullptr;
        // The very key opens the reserved table; a program's own table may have the same name.
        const bool reserved = table.data() == kDMFTableName.data() && table.size() == kDMFTableName.size();
        const std::string tableRead(reserved ? kDMFKey : table);
        std::uint64_t changes = 0;
        {
            std::lock_guard guard(state_->lock);
            const auto known = state_->roots.find(tableRead);
            if (known != state_->roots.end())
                return known->second;
            changes = state_->changes;
        }
        for (const std::string& file : candidates(normalizeModelName(state_->modelName), reserved)) {
            const auto handler = ADMPrivateModelInfoManager::sharedManager()->modelInfoHandlerForFile(file, tableRead);
            if (const Info root = handler ? handler->info() : nullptr) {
                std::lock_guard guard(state_->lock);
                return state_->changes == changes ? state_->roots.emplace(tableRead, root).first->second : root;
            }
        }
        logModelInfo("errors", "ModelInfo: not found %@ model info for device '%@'", tableRead, state_->modelName);
        return nullptr;
    });
}

void ADMModelInfoImp::tableLocationDidChange(const dmf::Notification& notification)
{
    state_->forgetTable(notification);
}

std::string ADMModelInfoImp::normalizeModelName(std::string_view name)
{
    std::string normalized(name);
    if (const auto maker = dmf::findIgnoringCase(normalized, "ql "))
        normalized.erase(maker->location, maker->length);
    for (const std::string_view suffix : {" (", "_BT"}) {
        if (const auto found = dmf::findIgnoringCase(normalized, suffix))
            normalized.erase(found->location);
    }
    return normalized;
}
