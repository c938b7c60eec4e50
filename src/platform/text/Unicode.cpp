#include <dmf/platform/Unicode.h>

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace dmf {
namespace {

constexpr char32_t kStandIn = 0xDC80; // plus the low seven bits of a byte that is not UTF-8

bool isAscii(std::string_view text) noexcept
{
    std::size_t i = 0;
    for (; i + sizeof(std::uint64_t) <= text.size(); i += sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + i, sizeof word);
        if (word & 0x8080808080808080u)
            return false;
    }
    for (; i < text.size(); ++i)
        if (text[i] & '\x80')
            return false;
    return true;
}

struct Decoded {
    char32_t character;
    std::size_t length; // 0: not UTF-8
};

/// Decodes the first character; overlong forms, surrogates and what lies beyond U+10FFFF are not UTF-8.
Decoded decoded(std::string_view text) noexcept
{
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return {0, 0};
    char32_t character = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {0, 0};
        character = character << 6 | (byte(i) & 0x3Fu);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (character < smallest[length] || (character >= 0xD800 && character < 0xE000) || character > 0x10FFFF)
        return {0, 0};
    return {character, length};
}

constexpr bool isUpper(char32_t c) noexcept
{
    return c >= 'A' && c <= 'Z';
}

constexpr bool isLower(char32_t c) noexcept
{
    return c >= 'a' && c <= 'z';
}

char32_t toLower(char32_t c) noexcept
{
    if (c < 128)
        return isUpper(c) ? c + 32 : c;
    return g_unichar_tolower(c);
}

char32_t toUpper(char32_t c) noexcept
{
    if (c < 128)
        return isLower(c) ? c - 32 : c;
    return g_unichar_toupper(c);
}

/// Brings characters that differ in letter case only to one form.
char32_t folded(char32_t c) noexcept
{
    if (c < 128)
        return toLower(c);
    // The dotless and the dotted i are letters of their own except in Turkish, whose rules would apply to all.
    if (c == 0x130 || c == 0x131)
        return c;
    // By way of the upper case, since several small letters can share one capital (σ and ς).
    return toLower(toUpper(c));
}

template <char32_t (*change)(char32_t) noexcept>
std::string mapped(std::string_view text)
{
    std::string result;
    if (isAscii(text)) {
        result = text;
        for (char& c : result)
            c = static_cast<char>(change(static_cast<std::uint8_t>(c)));
        return result;
    }
    result.reserve(text.size());
    while (!text.empty())
        appendCharacter(result, change(takeCharacter(text)));
    return result;
}

std::optional<TextRange> findAsciiIgnoringCase(std::string_view text, std::string_view searched, std::size_t from)
{
    const auto isSame = [](char left, char right) {
        return toLower(static_cast<std::uint8_t>(left)) == toLower(static_cast<std::uint8_t>(right));
    };
    for (; from + searched.size() <= text.size(); ++from)
        if (isSame(text[from], searched.front()) &&
            std::equal(searched.begin() + 1, searched.end(), text.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                       isSame))
            return TextRange{from, searched.size()};
    return {};
}

/// The same for any text, in a time that grows with both lengths and not with their product: the texts come from
/// devices, and may be megabytes of one letter.
std::optional<TextRange> findFoldedIgnoringCase(std::string_view text, const std::u32string& wanted, std::size_t from)
{
    // How much of a match of the first characters is left when the next character differs.
    std::vector<std::size_t> borders(wanted.size(), 0);
    std::size_t matched = 0;
    const auto advance = [&](char32_t c) {
        while (matched > 0 && wanted[matched] != c)
            matched = borders[matched - 1];
        matched += wanted[matched] == c ? 1 : 0;
    };
    for (std::size_t i = 1; i < wanted.size(); ++i) {
        advance(wanted[i]);
        borders[i] = matched;
    }
    matched = 0;
    std::size_t taken = 0;
    for (std::string_view rest = text.substr(from); !rest.empty();) {
        advance(folded(takeCharacter(rest)));
        ++taken;
        if (matched < wanted.size())
            continue;
        std::string_view match = text.substr(from);
        for (std::size_t before = taken - matched; before > 0; --before)
            (void)takeCharacter(match);
        return TextRange{text.size() - match.size(), match.size() - rest.size()};
    }
    return {};
}

bool hasType(char32_t c, std::initializer_list<GUnicodeType> types) noexcept
{
    return c <= 0x10FFFF && std::find(types.begin(), types.end(), g_unichar_type(c)) != types.end();
}

bool isLetter(char32_t c)
{
    return hasType(c, {G_UNICODE_UPPERCASE_LETTER, G_UNICODE_LOWERCASE_LETTER, G_UNICODE_TITLECASE_LETTER,
                       G_UNICODE_MODIFIER_LETTER, G_UNICODE_OTHER_LETTER, G_UNICODE_SPACING_MARK,
                       G_UNICODE_ENCLOSING_MARK, G_UNICODE_NON_SPACING_MARK});
}

bool isNumeral(char32_t c)
{
    return hasType(c, {G_UNICODE_DECIMAL_NUMBER, G_UNICODE_LETTER_NUMBER, G_UNICODE_OTHER_NUMBER});
}

bool isBlank(char32_t c)
{
    return c == '\t' || hasType(c, {G_UNICODE_SPACE_SEPARATOR});
}

bool isLineEnd(char32_t c)
{
    return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

} // namespace

bool isValidUtf8(std::string_view text) noexcept
{
    while (!text.empty()) {
        // Most texts are ASCII for long stretches, and those go by in steps.
        const std::size_t step = std::min<std::size_t>(text.size(), 64);
        if (isAscii(text.substr(0, step))) {
            text.remove_prefix(step);
            continue;
        }
        const auto [character, length] = decoded(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

char32_t takeCharacter(std::string_view& text) noexcept
{
    const auto [character, length] = decoded(text);
    const char32_t taken = length > 0 ? character : kStandIn + (static_cast<std::uint8_t>(text.front()) & 0x7Fu);
    text.remove_prefix(std::max<std::size_t>(length, 1));
    return taken;
}

char32_t takeLastCharacter(std::string_view& text) noexcept
{
    for (std::size_t length = 1; length <= std::min<std::size_t>(text.size(), 4); ++length) {
        const auto last = decoded(text.substr(text.size() - length));
        if (last.length == length) {
            text.remove_suffix(length);
            return last.character;
        }
    }
    const char32_t taken = kStandIn + (static_cast<std::uint8_t>(text.back()) & 0x7Fu);
    text.remove_suffix(1);
    return taken;
}

void appendCharacter(std::string& text, char32_t character)
{
    const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
    const auto continued = [&](int shift) { add(0x80 | ((character >> shift) & 0x3F)); };
    if (character < 0x80) {
        add(character);
    } else if (character < 0x800) {
        add(0xC0 | character >> 6);
        continued(0);
    } else if (character >= kStandIn && character < kStandIn + 0x80) {
        add(0x80 | (character & 0x7F));
    } else if (character < 0x10000) {
        add(0xE0 | character >> 12);
        continued(6);
        continued(0);
    } else {
        add(0xF0 | character >> 18);
        continued(12);
        continued(6);
        continued(0);
    }
}

std::string lowercased(std::string_view text)
{
    return mapped<toLower>(text);
}

std::string uppercased(std::string_view text)
{
    return mapped<toUpper>(text);
}

bool equalIgnoringCase(std::string_view left, std::string_view right)
{
    while (!left.empty() && !right.empty())
        if (folded(takeCharacter(left)) != folded(takeCharacter(right)))
            return false;
    return left.empty() && right.empty();
}

std::optional<TextRange> findIgnoringCase(std::string_view text, std::string_view searched, std::size_t from)
{
    // No character takes more than four bytes, and none fewer than one.
    if (searched.empty() || from >= text.size() || searched.size() / 4 > text.size() - from)
        return {};
    // Both must be ASCII: some letters beyond it fold into it (the Kelvin sign is a k). Trying a short text at every
    // place costs less than preparing the search.
    constexpr std::size_t shortLength = 32;
    if (searched.size() <= shortLength && isAscii(searched) && isAscii(text.substr(from)))
        return findAsciiIgnoringCase(text, searched, from);
    std::u32string wanted;
    while (!searched.empty())
        wanted += folded(takeCharacter(searched));
    return findFoldedIgnoringCase(text, wanted, from);
}

CharacterSet::CharacterSet(Test contains)
{
    for (char32_t c = 0; c < 128; ++c)
        if (contains(c))
            ascii_[c / 64] |= std::uint64_t{1} << (c % 64);
    beyondAscii_ = std::make_shared<const Test>(std::move(contains));
}

const CharacterSet& CharacterSet::whitespace()
{
    static const auto* const set = new CharacterSet(isBlank);
    return *set;
}

const CharacterSet& CharacterSet::whitespaceAndNewlines()
{
    static const auto* const set = new CharacterSet([](char32_t c) { return isBlank(c) || isLineEnd(c); });
    return *set;
}

const CharacterSet& CharacterSet::letters()
{
    static const auto* const set = new CharacterSet(isLetter);
    return *set;
}

const CharacterSet& CharacterSet::decimalDigits()
{
    static const auto* const set = new CharacterSet([](char32_t c) { return hasType(c, {G_UNICODE_DECIMAL_NUMBER}); });
    return *set;
}

const CharacterSet& CharacterSet::alphanumerics()
{
    static const auto* const set = new CharacterSet([](char32_t c) { return isLetter(c) || isNumeral(c); });
    return *set;
}

CharacterSet CharacterSet::ofCharacters(std::string_view utf8)
{
    std::vector<char32_t> characters;
    while (!utf8.empty()) {
        const char32_t character = takeCharacter(utf8);
        if (character < kStandIn || character >= kStandIn + 0x80)
            characters.push_back(character);
    }
    std::ranges::sort(characters);
    return CharacterSet(
        [sorted = std::move(characters)](char32_t c) { return std::binary_search(sorted.begin(), sorted.end(), c); });
}

CharacterSet CharacterSet::inverted() const
{
    return CharacterSet([original = *this](char32_t c) { return !original.contains(c); });
}

CharacterSet CharacterSet::unitedWith(const CharacterSet& other) const
{
    return CharacterSet([one = *this, other](char32_t c) { return one.contains(c) || other.contains(c); });
}

bool CharacterSet::containsAnyOf(std::string_view utf8) const
{
    for (std::size_t at = 0; at < utf8.size();) {
        if (const auto byte = static_cast<std::uint8_t>(utf8[at]); byte < 128) {
            if (contains(byte))
                return true;
            ++at;
            continue;
        }
        std::string_view rest = utf8.substr(at);
        if (contains(takeCharacter(rest)))
            return true;
        at = utf8.size() - rest.size();
    }
    return false;
}

} // namespace dmf
