#pragma once

#include <string>
#include <string_view>

namespace dmf::tool {

// What devices and files say must neither steer a terminal nor read in another order than it stands. Made visible are
// control characters of both blocks, bytes that are not UTF-8 (a terminal may take them for 8-bit controls), separators
// of lines, and marks, embeddings, overrides and isolates of writing direction.

/// `text` for one line: "\x1b", "\u202e".
[[nodiscard]] std::string printable(std::string_view text);
/// The same for a text of several lines, whose line ends and tabulators stay.
[[nodiscard]] std::string printableLines(std::string_view text);
/// The same for JSON: another text of the same value.
[[nodiscard]] std::string printableJson(std::string_view json);

/// Bytes that come in pieces, as `printableLines` shows them; a carriage return before a line end stays, too.
class PrintableStream {
public:
    /// What can be shown by now; the beginning of a character waits for its end.
    [[nodiscard]] std::string take(std::string_view bytes);
    /// What still waits.
    [[nodiscard]] std::string rest();

private:
    std::string waiting_;
};

} // namespace dmf::tool
