#include "platform/documents/XmlText.h"

#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace dmf::internal::xml {
namespace {

struct Entity {
    std::string_view name;
    char character;
};
constexpr std::array<Entity, 5> entities{{{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};

constexpr bool isForbiddenControl(unsigned char c) noexcept
{
    return (c < 0x20) & (c != '\t') & (c != '\n') & (c != '\r');
}

constexpr bool isCharacter(std::uint32_t c) noexcept
{
    return (c >= 0x20 && c < 0xD800) || c == '\t' || c == '\n' || c == '\r' || (c >= 0xE000 && c < 0xFFFE) ||
           (c >= 0x10000 && c < 0x110000);
}

constexpr bool isNameStart(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

constexpr bool isNamePart(char c) noexcept
{
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

} // namespace

Scan scan(std::string_view text) noexcept
{
    // Plain counting in bytes, a block at a time so that no count overflows: the compiler turns this into vector code,
    // which a search for one tag after the other is not.
    constexpr std::size_t block = 240; // whole vectors
    Scan found;
    std::uint8_t foreign = 0;
    for (std::size_t start = 0; start < text.size(); start += block) {
        const char* const bytes = text.data() + start;
        const std::size_t count = std::min(block, text.size() - start);
        std::uint8_t tags = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const auto c = static_cast<unsigned char>(bytes[i]);
            tags = static_cast<std::uint8_t>(tags + (c == '<' ? 1 : 0));
            foreign = static_cast<std::uint8_t>(foreign | (c >= 0x80 ? 1 : 0) | (isForbiddenControl(c) ? 1 : 0));
        }
        std::uint8_t sections = 0;
        const std::size_t pairs = std::min(block, text.size() - 1 - start);
        for (std::size_t i = 0; i < pairs; ++i) {
            const bool section = (bytes[i] == '<') & ((bytes[i + 1] == '!') | (bytes[i + 1] == '?'));
            sections = static_cast<std::uint8_t>(sections + (section ? 1 : 0));
        }
        found.tags += tags;
        found.sections += sections;
    }
    found.plain = foreign == 0;
    return found;
}

Refusal refusal(std::string_view text, Scan& found) noexcept
{
    if (text.size() > kXmlMaximumSize)
        return {XmlErrorCode::tooLarge, "the document is too large"};
    found = scan(text);
    if (found.tags > kXmlMaximumTags)
        return {XmlErrorCode::tooLarge, "the document has too many tags"};
    if (!found.plain && !isCharacterData(text))
        return {XmlErrorCode::encoding, "the document is not UTF-8 text"};
    return {};
}

bool isCharacterData(std::string_view text) noexcept
{
    if (std::ranges::any_of(text, [](char c) { return isForbiddenControl(static_cast<unsigned char>(c)); }))
        return false;
    // U+FFFE and U+FFFF are valid in UTF-8 but are no characters.
    for (auto at = text.find("\xEF\xBF"); at != text.npos; at = text.find("\xEF\xBF", at + 2)) {
        if (at + 2 < text.size() && static_cast<unsigned char>(text[at + 2]) >= 0xBE)
            return false;
    }
    return isValidUtf8(text);
}

std::size_t nameLength(std::string_view text) noexcept
{
    bool qualified = false;
    std::size_t length = 0;
    while (length < text.size()) {
        const bool starts = length == 0 || text[length - 1] == ':';
        if (starts ? isNameStart(text[length]) : isNamePart(text[length])) {
            ++length;
        } else if (text[length] == ':' && !starts && !qualified && length + 1 < text.size() &&
                   isNameStart(text[length + 1])) {
            qualified = true;
            ++length;
        } else {
            break;
        }
    }
    return length;
}

bool isName(std::string_view name) noexcept
{
    return !name.empty() && nameLength(name) == name.size() && isCharacterData(name);
}

bool isWhitespace(std::string_view text) noexcept
{
    return std::ranges::all_of(text, isSpace);
}

std::string_view trimmed(std::string_view text) noexcept
{
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

char32_t referencedCharacter(std::string_view reference) noexcept
{
    if (!reference.starts_with('#')) {
        const auto entity = std::ranges::find(entities, reference, &Entity::name);
        return entity == entities.end() ? 0 : static_cast<char32_t>(entity->character);
    }
    const bool hexadecimal = reference.starts_with("#x");
    const auto digits = reference.substr(hexadecimal ? 2 : 1);
    std::uint32_t character = 0;
    const auto end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, character, hexadecimal ? 16 : 10);
    return result.ec == std::errc() && result.ptr == end && isCharacter(character) ? character : 0;
}

bool appendDecoded(std::string& text, std::string_view raw)
{
    for (;;) {
        const auto start = raw.find('&');
        text += raw.substr(0, start);
        if (start == raw.npos)
            return true;
        const auto end = raw.find(';', start);
        if (end == raw.npos)
            return false;
        const char32_t character = referencedCharacter(raw.substr(start + 1, end - start - 1));
        if (character == 0)
            return false;
        appendCharacter(text, character);
        raw.remove_prefix(end + 1);
    }
}

void appendEscaped(std::string& xml, std::string_view text, bool attribute)
{
    const std::string_view special = attribute ? "&<>\"\t\n\r" : "&<>\r";
    for (;;) {
        const auto at = text.find_first_of(special);
        xml += text.substr(0, at);
        if (at == text.npos)
            return;
        const char c = text[at];
        const auto entity = std::ranges::find(entities, c, &Entity::character);
        // Line ends and tabs would come back as something else if they stood as they are.
        xml += '&';
        if (entity != entities.end())
            xml += entity->name;
        else
            xml.append("#").append(std::to_string(int{c}));
        xml += ';';
        text.remove_prefix(at + 1);
    }
}

bool documentTypeDeclares(std::string_view content) noexcept
{
    char quote = 0;
    for (const char c : content) {
        if (quote)
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '[')
            return true;
    }
    return false;
}

std::string atLine(std::string_view text, std::size_t offset, std::string_view reason)
{
    const auto before = text.substr(0, offset);
    return "line " + std::to_string(1 + std::ranges::count(before, '\n')) + ": " + std::string(reason);
}

} // namespace dmf::internal::xml
