#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMInfo.h>
#include <dmf/ADMInfoFileManager.h>
#include <dmf/ADMModelInfoHandler.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMSecureData.h>
#include <dmf/DMKeys.h>

#include "support/LogCapture.h"

/// A machine with an empty model database beside its library, the built plug-ins, and a log that takes everything.
/// Handlers are kept by the shared manager for good, so every test has tables of its own; what is in the library's own
/// table is read once per process, which CTest starts anew for each test.
class Database {
public:
    Database()
    {
        namespace fs = std::filesystem;
        machine.host().libraryFolder = machine.path("/library").string();
        fs::create_directories(resources());
        fs::create_directory_symlink(fs::path(DMF_BUILD_FOLDER) / "lib/dmf/PlugIns",
                                     machine.path("/library/dmf/PlugIns"));
        machine.writeFile(kDMLogConfigPath, "debug");
    }

    /// Where the library's own table lies.
    std::filesystem::path resources() const { return machine.path("/library/dmf/Resources"); }
    /// Where the tables of programs lie, until they are registered elsewhere.
    std::filesystem::path location(std::string_view name = "models") const
    {
        const auto folder = machine.path("/" + std::string(name));
        std::filesystem::create_directories(folder);
        return folder;
    }
    std::filesystem::path fileOf(std::string_view table, std::string_view name) const
    {
        return placeOf(table) / table / ADMInfoFileManager().realFileNameForFile(name).value();
    }
    /// Puts a file in the place of a model file as it is.
    void addPlain(std::string_view table, std::string_view name, std::string_view bytes) const
    {
        write(fileOf(table, name), bytes);
    }
    /// Puts a model file into a table.
    void add(std::string_view table, std::string_view name, std::string_view contents) const
    {
        addPlain(table, name, enciphered(contents));
    }
    static void write(const std::filesystem::path& path, std::string_view bytes)
    {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static std::string enciphered(std::string_view contents)
    {
        return std::string(ADMSecureData().encryptData(dmf::Data::fromText(contents), 0)->text());
    }

    /// Lets the shared manager find the tables of programs here.
    void registerTable(std::string_view table) const
    {
        (void)ADMModelInfoManager::sharedManager()->registerTable(table, location().string());
    }
    /// The merged tree of a file.
    static std::shared_ptr<ADMInfo> info(std::string_view table, std::string_view name)
    {
        const auto handler = ADMPrivateModelInfoManager::sharedManager()->modelInfoHandlerForFile(name, table);
        return handler ? handler->info() : nullptr;
    }

    /// The messages since the last call, each with the letter of its level: "W  text".
    std::vector<std::string> takeLog()
    {
        auto lines = log_.lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(logRead_));
        logRead_ += lines.size();
        return lines;
    }

    HostFixture machine;

private:
    std::filesystem::path placeOf(std::string_view table) const { return table == kDMFKey ? resources() : location(); }

    LogCapture log_{machine};
    std::size_t logRead_ = 0;
};

/// A property list whose root is a dictionary of this content.
inline std::string plist(std::string_view dictionary)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + std::string(dictionary) +
           "</dict></plist>";
}

/// A document of the model schema with this content in its root.
inline std::string xml(std::string_view content)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Model>" + std::string(content) + "</Model>";
}
