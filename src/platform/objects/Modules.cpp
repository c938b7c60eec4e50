#include "platform/objects/Modules.h"

#include <dlfcn.h>
#include <link.h>

namespace dmf::internal {

Module moduleOf(const void* address)
{
    Dl_info info{};
    if (!address || ::dladdr(address, &info) == 0)
        return {};
    return {info.dli_fbase, info.dli_fname ? info.dli_fname : ""};
}

Module loadModule(const std::string& path, std::string& refusal)
{
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    link_map* map = nullptr;
    if (!handle || ::dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
        const char* message = ::dlerror();
        refusal = message ? message : "the loader gives no reason";
        return {};
    }
    return moduleOf(map->l_ld); // any address inside will do
}

} // namespace dmf::internal
