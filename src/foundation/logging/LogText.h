#pragma once

#include <string>
#include <string_view>

namespace dmf::internal {

/// Whether the text is nothing but printable ASCII, as nearly every line is. Cheaper to tell than what else it may be.
[[nodiscard]] bool isPlainText(std::string_view text) noexcept;

/// Whether the text, which is UTF-8, holds control characters other than the tabulator, or others that steer what shows
/// it: separators of lines, and changes of the writing direction.
[[nodiscard]] bool holdsControls(std::string_view text) noexcept;

/// The text as it stands in one line of a log: its control characters as "\n", "\r", "\x1b", what steers beyond ASCII
/// as
/// "\u0085", "\u202e". What devices and URIs say is logged; nobody may forge lines or steer a terminal with it.
[[nodiscard]] std::string withoutControls(std::string_view text);

} // namespace dmf::internal
