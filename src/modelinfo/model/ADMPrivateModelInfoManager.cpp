#include <dmf/ADMModelInfoManager.h>

#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include <dmf/ADMModelInfoHandler.h>
#include <dmf/ADMModelInfoHandlerFactory.h>
#include <dmf/ADMModelInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>
#include <dmf/platform/NotificationCenter.h>
#include <dmf/platform/Unicode.h>

#include "modelinfo/files/ModelInfoLog.h"
#include "modelinfo/files/Spared.h"
#include "modelinfo/model/ModelInfoManagers.h"
#include "platform/files/Files.h"
#include "platform/host/Host.h"

using dmf::internal::logModelInfo;
using dmf::internal::spared;

namespace {

constexpr std::int32_t kContentsCipher = 0;
constexpr std::string_view kDefaultLocation = "/Library/Application Support/ql/dmf/ModelDatabase";

/// A link whose name ends with a slash is followed before anybody sees that it is one.
std::filesystem::path withoutLastSlash(std::string path)
{
    while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/.")))
        path.pop_back();
    return path;
}

} // namespace

std::shared_ptr<ADMPrivateModelInfoManager> ADMPrivateModelInfoManager::sharedManager()
{
    static const auto* const shared =
        new std::shared_ptr<ADMPrivateModelInfoManager>(dmf::internal::ModelInfoManagers::make());
    return *shared;
}

ADMPrivateModelInfoManager::ADMPrivateModelInfoManager() : fileManager_(modelInfoPathForTable(kDMFKey)) {}

ADMPrivateModelInfoManager::~ADMPrivateModelInfoManager() = default;

bool ADMPrivateModelInfoManager::registerTable(std::optional<std::string_view> table,
                                               std::optional<std::string_view> location)
{
    return spared("registering a table", [&]() -> bool {
        if (!table || !location) {
            logModelInfo("errors", "ModelInfo: Invalid parameters for registering table location");
            return false;
        }
        if (*table == kDMFKey) {
            logModelInfo("warnings", "ModelInfo: attempt to register location of table with the reserved name.");
            return false;
        }
        {
            std::lock_guard guard(registrationLock_);
            if (hasLocation(*table, *location))
                return true;
            if (isValidTableLocation(std::string(*location))) {
                setLocation(*table, *location);
                announce(*table);
                return true;
            }
        }
        logModelInfo("warnings", "ModelInfo: attempt to register invalid location '%@' of the table '%@'", *location,
                     *table);
        return false;
    });
}

/// What an observer throws is not the registering program's: the location is stored all the same.
void ADMPrivateModelInfoManager::announce(std::string_view table) const
{
    try {
        postTableLocationChangeNotification(table);
    } catch (const std::exception& error) {
        logModelInfo("errors", "ModelInfo: exception '%@' from an observer of the location of the table '%@'", error,
                     table);
    } catch (...) {
        logModelInfo("errors", "ModelInfo: unknown exception from an observer of the location of the table '%@'",
                     table);
    }
}

bool ADMPrivateModelInfoManager::hasLocation(std::string_view table, std::string_view location) const
{
    std::lock_guard guard(locationsLock_);
    const auto known = locations_.find(table);
    return known != locations_.end() && known->second == location;
}

void ADMPrivateModelInfoManager::setLocation(std::string_view table, std::string_view location)
{
    std::lock_guard guard(locationsLock_);
    locations_.insert_or_assign(std::string(table), std::string(location));
}

bool ADMPrivateModelInfoManager::isValidTableLocation(const std::string& path) const
{
    namespace fs = std::filesystem;
    std::error_code failure;
    fs::path item = withoutLastSlash(path);
    fs::file_status status = fs::symlink_status(item, failure);
    if (fs::is_symlink(status)) {
        // One link only is followed, so that a location cannot be led about.
        const fs::path destination = fs::read_symlink(item, failure);
        if (failure)
            return false;
        item = item.parent_path() / withoutLastSlash(destination);
        status = fs::symlink_status(item, failure);
    }
    return fs::is_directory(status);
}

std::string ADMPrivateModelInfoManager::modelInfoPathForTable(std::string_view table) const
{
    if (table == kDMFKey)
        return dmf::Bundle::libraryBundle()->resourcePath();
    std::lock_guard guard(locationsLock_);
    const auto registered = locations_.find(table);
    return registered != locations_.end() ? registered->second : dmf::internal::Host::current().path(kDefaultLocation);
}

std::shared_ptr<ADMModelInfoHandler>
ADMPrivateModelInfoManager::modelInfoHandlerForFile(std::optional<std::string_view> file,
                                                    std::optional<std::string_view> table)
{
    return spared("looking for a model file", [&]() -> std::shared_ptr<ADMModelInfoHandler> {
        if (!file || !table) {
            logModelInfo("errors",
                         "ModelInfo: model info manager cannot create a mode info handler for unknown file or table "
                         "(file '%@', table '%@')",
                         file ? dmf::FormatArgument(*file) : nullptr, table ? dmf::FormatArgument(*table) : nullptr);
            return nullptr;
        }
        const std::string name = dmf::lowercased(*file);
        std::lock_guard guard(cacheLock_);
        const auto ofTable = handlers_.find(*table);
        if (ofTable != handlers_.end()) {
            const auto known = ofTable->second.find(name);
            if (known != ofTable->second.end())
                return known->second;
        }
        auto handler = readHandler(*file, std::string(*table));
        if (handler)
            handlers_[std::string(*table)].emplace(name, handler);
        return handler;
    });
}

std::shared_ptr<ADMModelInfoHandler> ADMPrivateModelInfoManager::readHandler(std::string_view file,
                                                                             const std::string& table)
{
    using Factory = ADMModelInfoHandlerFactory;
    const std::optional<std::string> stored = fileManager_.realFileNameForFile(file);
    if (!stored)
        return nullptr;
    const std::string path = modelInfoPathForTable(table) + '/' + table + '/' + *stored;
    std::string refusal;
    auto bytes = dmf::internal::readRegularFile(path, ADMInfoFileManager::kMaximumFileSize,
                                                dmf::internal::Links::follow, &refusal);
    if (!bytes) {
        // That there is no such file is a usual answer, and no news.
        if (refusal == dmf::internal::kTooLarge)
            logModelInfo("errors", "ModelInfo: the file '%@' in '%@' table is larger than %u bytes", file, table,
                         ADMInfoFileManager::kMaximumFileSize);
        return nullptr;
    }
    const dmf::Data raw(*std::move(bytes));
    if (Factory::infoFormatForData(raw) != Factory::Format::unknown) {
        logModelInfo("warnings", "ModelInfo: not encrypted contents of file '%@' in '%@' table", file, table);
        return nullptr;
    }
    const auto contents = secureData_.decryptData(raw, kContentsCipher);
    auto handler = Factory::handlerForData(contents.value_or(dmf::Data()), table);
    if (!handler)
        logModelInfo("errors", "ModelInfo: cannot get an info file handler for file '%@' in '%@' table", file, table);
    return handler;
}

std::optional<std::string> ADMPrivateModelInfoManager::familyNameForModel(std::string_view modelName)
{
    return spared("looking for a family",
                  [&]() -> std::optional<std::string> { return fileManager_.familyNameForModel(modelName); });
}

std::shared_ptr<ADMCoreModelInfo> ADMPrivateModelInfoManager::modelInfoWithModelName(std::string_view modelName)
{
    return spared("looking for a model",
                  [&]() -> std::shared_ptr<ADMCoreModelInfo> { return std::make_shared<ADMModelInfoImp>(modelName); });
}

void ADMPrivateModelInfoManager::postTableLocationChangeNotification(std::string_view table) const
{
    dmf::NotificationCenter::defaultCenter().post(kDMModelInfoTableLocationDidChangeNotification, nullptr,
                                                  {{std::string(kDMModelInfoChangedTableKey), table}});
}
