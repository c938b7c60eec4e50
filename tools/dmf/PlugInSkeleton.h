#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace dmf::tool {

/// Whether a plug-in may have the name: a letter, then letters and digits; it names classes, files and a target.
[[nodiscard]] bool isPlugInName(const std::string& name);

/// Writes the beginnings of a plug-in into the new folder `folder`: a device class for a connection type of that name,
/// its description, a test and the CMake file that builds both. Gives the files' names; throws std::runtime_error when
/// something is there already or cannot be written.
std::vector<std::string> writePlugInSkeleton(const std::string& name, const std::filesystem::path& folder);

} // namespace dmf::tool
