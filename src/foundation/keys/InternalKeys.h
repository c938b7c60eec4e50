#pragma once

#include <string_view>

namespace dmf::internal {

/// Fields of the QLIP reply; they also name the query keys of a "qlip" URI.
inline constexpr std::string_view kDMQLIPModelName = "model";
inline constexpr std::string_view kDMQLIPMacAddress = "mac";
inline constexpr std::string_view kDMQLIPInterfaceID = "ifid";

/// The run-loop mode in which synchronous operations wait.
inline constexpr std::string_view kDMSyncOperationRunLoopMode = "com.ql.dmf.runloop.mode.sync.operation";

} // namespace dmf::internal
