#pragma once

#include <string>
#include <string_view>

namespace dmf::internal::xml {

/// Rewrites malformed XML as what was probably meant: elements left open are closed, ends that fit no open element are
/// left out, attributes get values and quotes, what looks like markup but is none becomes text, bytes that XML cannot
/// carry are replaced, and declarations, document types, instructions and text outside the root are left out. Not
/// every input can be repaired: the result is to be read like any other document. At most about six times as long as
/// the input.
[[nodiscard]] std::string tidied(std::string_view text);

} // namespace dmf::internal::xml
