#pragma once

#include <string>

#include "Output.h"

namespace dmf::tool {

/// Everything that the database tells of a model; null when it knows nothing.
[[nodiscard]] Json describeModel(const std::string& name);

} // namespace dmf::tool
