#include "platform/StringScanner.h"

#include <dmf/platform/Unicode.h>

#include <algorithm>

namespace dmf::internal {
namespace {

bool isBlankBeyondAscii(char32_t character)
{
    return CharacterSet::whitespaceAndNewlines().contains(character);
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
    return take(begin, text_.find_first_of(stops, begin));
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
    return take(begin, text_.find_first_not_of(characters, begin)).has_value();
}

} // namespace dmf::internal
