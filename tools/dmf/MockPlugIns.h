#pragma once

#include <string>
#include <string_view>

namespace dmf::tool {

/// The folder of the mock plug-ins that are shipped with the library.
[[nodiscard]] std::string shippedMockPlugInsPath();

/// Makes a shipped simulated device usable without installing it in the machine's mock folder: when the URI's scheme is
/// served by a mock plug-in that was shipped with the library, and by none of the machine's, loads and registers it.
/// Does nothing for every other URI.
void useShippedMockPlugIn(std::string_view uri);

} // namespace dmf::tool
