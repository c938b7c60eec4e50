#include <dmf/PlugInFolders.h>

#include <dmf/DMLog.h>
#include <dmf/platform/Bundle.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "platform/host/Host.h"
#include "plugins/PlugInRules.h"

namespace dmf {
namespace {

using internal::Host;

constexpr const char* kPathVariable = "DMF_PLUGIN_PATH";

struct NamedFolders {
    std::mutex lock;
    std::vector<std::string> byProgram;     // guarded by lock
    std::vector<std::string> byEnvironment; // guarded by lock
    std::uint64_t generation = 0;           // of the host whose environment was read; guarded by lock

    static NamedFolders& shared()
    {
        static NamedFolders* const named = new NamedFolders;
        return *named;
    }
};

std::vector<std::string> foldersOfEnvironment()
{
    std::vector<std::string> folders;
    const std::string list = Host::current().environment(kPathVariable).value_or("");
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find(':', begin), list.size());
        if (end > begin)
            folders.push_back(internal::normalFolder(list.substr(begin, end - begin)));
        begin = end + 1;
    }
    return folders;
}

/// Those of the environment, read at the first call for a host.
std::vector<std::string> takeEnvironment(NamedFolders& named)
{
    std::vector<std::string> read;
    {
        std::lock_guard guard(named.lock);
        if (named.generation == Host::generation())
            return named.byEnvironment;
        named.generation = Host::generation();
        read = named.byEnvironment = foldersOfEnvironment();
    }
    for (const std::string& folder : read)
        DMFLog("info", "PlugIns: %@ adds the plug-in folder '%@'", kPathVariable, folder);
    return read;
}

} // namespace

bool addPlugInFolder(std::string_view path)
{
    if (path.empty())
        return false;
    std::string folder = internal::normalFolder(std::string(path));
    NamedFolders& named = NamedFolders::shared();
    std::lock_guard guard(named.lock);
    if (std::ranges::find(named.byProgram, folder) != named.byProgram.end())
        return false;
    named.byProgram.push_back(std::move(folder));
    return true;
}

bool removePlugInFolder(std::string_view path)
{
    const std::string folder = path.empty() ? std::string() : internal::normalFolder(std::string(path));
    NamedFolders& named = NamedFolders::shared();
    std::lock_guard guard(named.lock);
    return std::erase(named.byProgram, folder) > 0;
}

std::vector<PlugInFolder> plugInFolders()
{
    std::vector<PlugInFolder> folders;
    const auto append = [&folders](const std::string& path, PlugInFolder::Origin origin) {
        if (std::ranges::find(folders, path, &PlugInFolder::path) == folders.end())
            folders.push_back({path, origin});
    };
    append(internal::normalFolder(Bundle::libraryBundle()->builtInPlugInsPath()), PlugInFolder::Origin::library);
    NamedFolders& named = NamedFolders::shared();
    const auto byEnvironment = takeEnvironment(named);
    {
        std::lock_guard guard(named.lock);
        for (const std::string& folder : named.byProgram)
            append(folder, PlugInFolder::Origin::program);
    }
    for (const std::string& folder : byEnvironment)
        append(folder, PlugInFolder::Origin::environment);
    return folders;
}

} // namespace dmf
