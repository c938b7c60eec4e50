#pragma once

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {

/// What a device is usually asked for as its service is resolved: by connection type a dictionary whose keys are the
/// parameter keys, each with the value true. A type without an entry asks for nothing in particular. The discovery
/// hands it on. Thread-safe. Exported for the tests; its header is not installed.
[[nodiscard]] DMF_EXPORT const Dictionary& connectionTypeToParametersMap();

} // namespace dmf::internal
