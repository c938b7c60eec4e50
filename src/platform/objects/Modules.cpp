#include "platform/objects/Modules.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <syslog.h>

#include <exception>
#include <map>
#include <mutex>

#include "platform/files/Files.h"
#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

struct ModuleFaults {
    std::mutex lock;
    std::map<const void*, std::string> byModule; // guarded by lock

    static ModuleFaults& shared()
    {
        static ModuleFaults* const faults = new ModuleFaults;
        return *faults;
    }
};

/// As the loader named the folder when it loaded the library: it makes a name absolute that is relative to the folder
/// in which the process was then, and which it may have left.
std::string findOwnFolder()
{
    Dl_info info{};
    void* map = nullptr;
    const auto* const here = reinterpret_cast<const void*>(&ownFolder);
    if (::dladdr1(here, &info, &map, RTLD_DL_LINKMAP) == 0 || !info.dli_fname)
        return {};
    std::string folder = folderOf(info.dli_fname);
    char origin[2 * PATH_MAX] = {};
    if (!folder.starts_with('/') && ::dlinfo(map, RTLD_DI_ORIGIN, origin) == 0) // a link map is a handle, too
        folder = origin;
    return realPath(folder).value_or(folder);
}

[[noreturn]] void endAfterThrow(const std::string& owner, const char* what) noexcept
{
    if (const auto& log = Host::current().systemLog)
        log(LOG_CRIT, "PlugIns: the code of '" + owner + "' threw while it was loaded: " + what);
    std::terminate();
}

void* openInLoader(const std::string& path, const std::string& owner)
{
    // Called as what it is not declared to be, a function that lets exceptions through: they come from the object.
    void* (*volatile const loaderOpen)(const char*, int) = &::dlopen;
    try {
        return loaderOpen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    } catch (const std::exception& error) {
        endAfterThrow(owner, error.what());
    } catch (...) {
        endAfterThrow(owner, "something that is no std::exception");
    }
}

} // namespace

Module moduleOf(const void* address)
{
    Dl_info info{};
    if (!address || ::dladdr(address, &info) == 0)
        return {};
    return {info.dli_fbase, info.dli_fname ? info.dli_fname : ""};
}

const std::string& ownFolder()
{
    static const std::string* const folder = new std::string(findOwnFolder());
    return *folder;
}

Module loadModule(const std::string& path, const std::string& owner, std::string& refusal)
{
    void* handle = openInLoader(path, owner);
    link_map* map = nullptr;
    if (!handle || ::dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
        const char* message = ::dlerror();
        refusal = message ? message : "the loader gives no reason";
        return {};
    }
    return moduleOf(map->l_ld); // any address inside will do
}

void noteModuleFault(const void* base, std::string_view reason)
{
    ModuleFaults& faults = ModuleFaults::shared();
    std::lock_guard guard(faults.lock);
    std::string& text = faults.byModule[base];
    text.append(text.empty() ? "" : "; ").append(reason);
}

std::string moduleFault(const void* base)
{
    ModuleFaults& faults = ModuleFaults::shared();
    std::lock_guard guard(faults.lock);
    const auto entry = faults.byModule.find(base);
    return entry == faults.byModule.end() ? std::string() : entry->second;
}

} // namespace dmf::internal
