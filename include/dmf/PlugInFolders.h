#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>

namespace dmf {

/// A folder in which regular plug-ins are looked for.
struct PlugInFolder {
    enum class Origin : std::uint8_t {
        library,     ///< beside the library
        program,     ///< named by addPlugInFolder
        environment, ///< named by the environment variable DMF_PLUGIN_PATH
    };
    std::string path; ///< absolute; without links as far as it exists
    Origin origin = Origin::library;
};

/// Names a folder of the program's own for regular plug-ins. It is asked after the library's and those named before; it
/// need not exist yet. A relative path is taken from the folder that the process is in now. Its bundles pass the tests
/// that all pass (Bundle::load). False when the path is empty or was named already. Thread-safe.
DMF_EXPORT bool addPlugInFolder(std::string_view path);

/// Takes back a folder that addPlugInFolder named; false when there is none of the path. What was loaded from it stays.
/// Thread-safe.
DMF_EXPORT bool removePlugInFolder(std::string_view path);

/// All of them, in the order in which they are asked: the library's, the program's, and those of DMF_PLUGIN_PATH, a
/// list separated by colons that is read at the first need. That one is meant for whoever develops a plug-in: a program
/// with raised privileges takes no notice of it, and a log line at "info" tells each folder. Thread-safe.
[[nodiscard]] DMF_EXPORT std::vector<PlugInFolder> plugInFolders();

} // namespace dmf
