#pragma once

#include <span>
#include <string_view>

#include <dmf/platform/Format.h>

namespace dmf::internal {

/// A line as DMFLogv writes it while logging is enabled; otherwise one for the calling thread's own logger alone, if it
/// has one, and none for the system's log. Thread-safe; never throws.
void logWhereEnabled(std::string_view level, std::string_view format, std::span<const FormatArgument> arguments);

} // namespace dmf::internal
