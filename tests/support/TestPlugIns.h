#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <dmf/platform/Bundle.h>
#include <dmf/platform/PropertyList.h>

/// Makes bundles out of the plug-in objects that the build made for the tests: "Alpha" holds the classes AlphaProvider,
/// AlphaService and AlphaOdd.
namespace testplugins {

inline void writeInfo(const std::filesystem::path& bundle, const dmf::Dictionary& info)
{
    std::ofstream(bundle / "Info.plist", std::ios::binary) << dmf::PropertyList::serialize(info)->text();
}

/// The description of a plug-in that loads, and `more`, whose entries replace it.
inline dmf::Dictionary info(const dmf::Dictionary& more = {})
{
    dmf::Dictionary info{{std::string(dmf::kBundleExecutableKey), "Object.so"},
                         {std::string(dmf::kPlugInInterfaceNumberKey), dmf::kPlugInInterfaceNumber}};
    info.merge(more);
    return info;
}

/// The bundle `path` with the object of that name, and its path again.
inline std::filesystem::path make(const std::filesystem::path& path, const std::string& object,
                                  const dmf::Dictionary& more = {})
{
    std::filesystem::create_directories(path);
    std::filesystem::copy_file(std::filesystem::path(DMF_BUILD_FOLDER) / "test-plugins" / (object + ".so"),
                               path / "Object.so");
    writeInfo(path, info(more));
    return path;
}

} // namespace testplugins
