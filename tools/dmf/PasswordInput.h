#pragma once

#include <dmf/platform/Secret.h>

namespace dmf::tool {

/// One line from standard input, without its end; on a terminal it is asked for and not shown. What was read on the way
/// is wiped. Throws Failure when there is none, when it is longer than any password, and when a signal comes.
[[nodiscard]] Secret readPassword();

} // namespace dmf::tool
