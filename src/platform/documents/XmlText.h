#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <dmf/platform/Xml.h>

/// What XML documents and property lists share below their tree: the checks of the raw text that the tokenizer leaves
/// out, and character data in both directions. All thread-safe.
namespace dmf::internal::xml {

/// What one pass over the text finds.
struct Scan {
    std::size_t tags = 0;     ///< "<" characters
    std::size_t sections = 0; ///< "<!" and "<?": comments, character data sections, declarations, instructions
    bool plain = true;        ///< ASCII without forbidden control characters
};
[[nodiscard]] Scan scan(std::string_view text) noexcept;

/// Why the text is not read at all.
struct Refusal {
    XmlErrorCode code{};
    const char* reason = nullptr; ///< null: it is read
};
/// Size, number of tags and characters, in this order: nothing is looked at closely before its size is known to be
/// bounded. `found` is what was counted when it is not refused.
[[nodiscard]] Refusal refusal(std::string_view text, Scan& found) noexcept;

/// Whether all of it is UTF-8 made of characters that XML knows.
[[nodiscard]] bool isCharacterData(std::string_view text) noexcept;
/// How many bytes at the front make a name, a namespace prefix included; 0 for none.
[[nodiscard]] std::size_t nameLength(std::string_view text) noexcept;
[[nodiscard]] bool isName(std::string_view name) noexcept;
[[nodiscard]] bool isWhitespace(std::string_view text) noexcept;
[[nodiscard]] constexpr bool isSpace(char c) noexcept
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

/// The character that the reference between "&" and ";" stands for ("amp", "#65", "#x41"); 0 for none that is known.
[[nodiscard]] char32_t referencedCharacter(std::string_view reference) noexcept;
/// Appends `raw` with its references resolved; false at one that is unknown.
[[nodiscard]] bool appendDecoded(std::string& text, std::string_view raw);
/// Appends `text` so that it reads back the same between tags, or between double quotes for an attribute.
void appendEscaped(std::string& xml, std::string_view text, bool attribute = false);

/// Whether a document type brings declarations of its own along ("[...]"); `content` is what follows "<!DOCTYPE".
[[nodiscard]] bool documentTypeDeclares(std::string_view content) noexcept;

/// "line 3: ..." for the byte at `offset`.
[[nodiscard]] std::string atLine(std::string_view text, std::size_t offset, std::string_view reason);

} // namespace dmf::internal::xml
