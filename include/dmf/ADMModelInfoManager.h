#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/ADMInfoFileManager.h>
#include <dmf/ADMSecureData.h>
#include <dmf/platform/Export.h>

class ADMCoreModelInfo;
class ADMModelInfoHandler;

namespace dmf::internal {
struct ModelInfoManagers;
}

/// The entry to the model database of the process: where its tables lie and what it knows of a model. Thread-safe.
///
/// The library's own table "DMF" lies beside the library; a registered table lies where the program says; every other
/// table lies in /Library/Application Support/ql/dmf/ModelDatabase.
class DMF_EXPORT ADMModelInfoManager {
public:
    /// The one manager; it lives to the end of the process.
    [[nodiscard]] static std::shared_ptr<ADMModelInfoManager> sharedManager();
    /// There is no object of this very class: making one gives the shared manager.
    [[nodiscard]] static std::shared_ptr<ADMModelInfoManager> init();
    virtual ~ADMModelInfoManager();
    ADMModelInfoManager(const ADMModelInfoManager&) = delete;
    ADMModelInfoManager& operator=(const ADMModelInfoManager&) = delete;

    /// Says in which folder the folder of that table lies. False, with a line in the log, for a missing argument, for
    /// the library's own table and for a location that is neither a folder nor one link to a folder; the earlier
    /// location then stays. A new location is announced by kDMModelInfoTableLocationDidChangeNotification, with the
    /// table's name under kDMModelInfoChangedTableKey, on the calling thread and before this returns; observers must
    /// not register tables from it, and what one throws is logged. Files that were read already are not read again.
    /// Never waits for a look-up that is under way.
    virtual bool registerTable(std::optional<std::string_view> table, std::optional<std::string_view> location);
    /// What the database knows of the model: a new object each time, which reads files when it is first asked.
    [[nodiscard]] virtual std::shared_ptr<ADMCoreModelInfo> modelInfoWithModelName(std::string_view modelName);

protected:
    ADMModelInfoManager();
};

/// The manager itself, of which there is the shared one only. Thread-safe.
class DMF_EXPORT ADMPrivateModelInfoManager final : public ADMModelInfoManager {
public:
    [[nodiscard]] static std::shared_ptr<ADMPrivateModelInfoManager> sharedManager();
    ~ADMPrivateModelInfoManager() override;

    bool registerTable(std::optional<std::string_view> table, std::optional<std::string_view> location) override;
    [[nodiscard]] std::shared_ptr<ADMCoreModelInfo> modelInfoWithModelName(std::string_view modelName) override;

    /// Whether the path is a folder or a link to one; a link to a link is not.
    [[nodiscard]] bool isValidTableLocation(const std::string& path) const;
    /// The folder in which the table's folder lies.
    [[nodiscard]] std::string modelInfoPathForTable(std::string_view table) const;
    /// The handler of a logical file name, whatever its letter case: the kept one, else a new one made from the file,
    /// which is then kept for good. Empty, with a line in the log save where there is no such file, when none can be
    /// made; that is not remembered. Blocks while a file is read, by this or by another thread.
    [[nodiscard]] std::shared_ptr<ADMModelInfoHandler> modelInfoHandlerForFile(std::optional<std::string_view> file,
                                                                               std::optional<std::string_view> table);
    [[nodiscard]] std::optional<std::string> familyNameForModel(std::string_view modelName);
    void postTableLocationChangeNotification(std::string_view table) const;
    [[nodiscard]] ADMInfoFileManager& infoFileManager() noexcept { return fileManager_; }
    [[nodiscard]] const ADMSecureData& secureData() const noexcept { return secureData_; }

private:
    friend struct dmf::internal::ModelInfoManagers;
    ADMPrivateModelInfoManager();

    using Handlers = std::map<std::string, std::shared_ptr<ADMModelInfoHandler>, std::less<>>;
    [[nodiscard]] std::shared_ptr<ADMModelInfoHandler> readHandler(std::string_view file, const std::string& table);
    [[nodiscard]] bool hasLocation(std::string_view table, std::string_view location) const;
    void setLocation(std::string_view table, std::string_view location);
    void announce(std::string_view table) const;

    ADMInfoFileManager fileManager_;
    const ADMSecureData secureData_{};
    // Held while a change is stored and announced, so that announcements come in the order of the changes. It is never
    // wanted by a thread that holds a model information object's lock, which observers of the announcement take.
    std::mutex registrationLock_;
    std::mutex cacheLock_;
    std::map<std::string, Handlers, std::less<>> handlers_; // by table and lower-cased name; guarded by cacheLock_
    mutable std::mutex locationsLock_;
    std::map<std::string, std::string, std::less<>> locations_; // by table; guarded by locationsLock_
};
