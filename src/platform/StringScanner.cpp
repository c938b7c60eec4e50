#include "platform/StringScanner.h"

#include <dmf/platform/Unicode.h>

#include <algorithm>

namespace dmf::internal {
namespace {

bool isBlankBeyondAscii(char32_t character)
{
    return CharacterSet::whitespaceAndNewlines().contains(character);
}

enum class Belongs : bool { no, yes };

/// A set of ASCII characters that is cheap to make and to ask: the standard's searches make a call for each character.
class AsciiSet {
public:
    explicit AsciiSet(std::string_view characters) noexcept
    {
        for (const char c : characters)
            bits_[(c >> 6) & 1] |= std::uint64_t{1} << (c & 63);
    }
    [[nodiscard]] bool contains(char c) const noexcept
    {
        return static_cast<std::uint8_t>(c) < 128 && (bits_[(c >> 6) & 1] >> (c & 63) & 1) != 0;
    }

private:
    std::uint64_t bits_[2]{};
};

/// Where the run of characters from `begin` ends that all belong to `characters`, or all do not.
std::size_t runOf(std::string_view text, std::size_t begin, std::string_view characters, Belongs belongs) noexcept
{
    const AsciiSet set(characters);
    while (begin < text.size() && set.contains(text[begin]) == (belongs == Belongs::yes))
        ++begin;
    return begin;
}

} // namespace

std::size_t StringScanner::afterBlanks() const noexcept
{
    for (std::string_view rest = remaining(); !rest.empty();) {
        const std::size_t location = text_.size() - rest.size();
        const auto byte = static_cast<std::uint8_t>(rest.front());
        if (byte < 128) {
            if (byte != ' ' && (byte < '\t' || byte > '\r'))
                return location;
            rest.remove_prefix(1);
        } else if (!isBlankBeyondAscii(takeCharacter(rest))) {
            return location;
        }
    }
    return text_.size();
}

std::optional<std::string_view> StringScanner::take(std::size_t begin, std::size_t end) noexcept
{
    end = std::min(end, text_.size());
    if (begin == end)
        return {};
    location_ = end;
    return text_.substr(begin, end - begin);
}

std::optional<std::string_view> StringScanner::scanUpTo(std::string_view stop) noexcept
{
    const std::size_t begin = afterBlanks();
    return take(begin, text_.find(stop, begin));
}

std::optional<std::string_view> StringScanner::scanUpToAnyOf(std::string_view stops) noexcept
{
    const std::size_t begin = afterBlanks();
    return take(begin, runOf(text_, begin, stops, Belongs::no));
}

bool StringScanner::scan(std::string_view piece) noexcept
{
    const std::size_t begin = afterBlanks();
    if (!text_.substr(begin).starts_with(piece))
        return false;
    location_ = begin + piece.size();
    return true;
}

bool StringScanner::scanAnyOf(std::string_view characters) noexcept
{
    const std::size_t begin = afterBlanks();
    return take(begin, runOf(text_, begin, characters, Belongs::yes)).has_value();
}

} // namespace dmf::internal
