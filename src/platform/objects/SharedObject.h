#pragma once

#include <string>

namespace dmf::internal {

/// Why the file behind the descriptor cannot be mapped as a shared object, as a text that follows the file's name ("is
/// no regular file"); empty when it can. A file that is shorter than it says of itself would end the program with
/// SIGBUS in the middle of loading. What is built for another machine passes: the loader refuses that in its own words.
[[nodiscard]] std::string faultOfSharedObject(int descriptor);

} // namespace dmf::internal
