#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf::internal {

/// Takes a text apart piece by piece. Blanks and line ends before each piece are skipped; inside a piece they count.
/// Letter case counts. An operation that fails leaves the scanner where it was. Allocates nothing; the text must
/// outlive the scanner and what it gives. Reentrant. Its header is not installed.
class StringScanner {
public:
    explicit StringScanner(std::string_view text) noexcept : text_(text) {}

    /// What stands before the next `stop`, or up to the end without one; nothing when that is empty.
    std::optional<std::string_view> scanUpTo(std::string_view stop) noexcept
    {
        const std::size_t begin = afterBlanks();
        return take(begin, text_.find(stop, begin));
    }
    /// The same with any of the ASCII characters `stops`.
    std::optional<std::string_view> scanUpToAnyOf(std::string_view stops) noexcept
    {
        const std::size_t begin = afterBlanks();
        return take(begin, runOf(begin, stops, false));
    }
    /// Skips `piece`; false when something else stands there.
    bool scan(std::string_view piece) noexcept
    {
        const std::size_t begin = afterBlanks();
        if (!text_.substr(begin).starts_with(piece))
            return false;
        location_ = begin + piece.size();
        return true;
    }
    /// Skips a run of the ASCII characters `characters`; false when none stands there.
    bool scanAnyOf(std::string_view characters) noexcept
    {
        const std::size_t begin = afterBlanks();
        return take(begin, runOf(begin, characters, true)).has_value();
    }

    /// What is left, blanks before it included.
    [[nodiscard]] std::string_view remaining() const noexcept { return text_.substr(location_); }
    /// Whether nothing but blanks and line ends is left.
    [[nodiscard]] bool atEnd() const noexcept { return afterBlanks() == text_.size(); }

private:
    [[nodiscard]] std::size_t afterBlanks() const noexcept
    {
        const auto byte = static_cast<unsigned char>(location_ < text_.size() ? text_[location_] : ' ');
        const bool startsPlain = byte > ' ' && byte < 0x80;
        return startsPlain ? location_ : afterSomeBlanks();
    }
    [[nodiscard]] DMF_EXPORT std::size_t afterSomeBlanks() const noexcept;

    /// Where the run of characters from `begin` ends that all belong to `characters`, or all do not.
    [[nodiscard]] std::size_t runOf(std::size_t begin, std::string_view characters, bool belong) const noexcept
    {
        // Compared one by one: they are few, and the standard's search makes a call for each character of the text.
        const auto belongs = [characters](char c) {
            for (const char each : characters) {
                if (c == each)
                    return true;
            }
            return false;
        };
        while (begin < text_.size() && belongs(text_[begin]) == belong)
            ++begin;
        return begin;
    }

    std::optional<std::string_view> take(std::size_t begin, std::size_t end) noexcept
    {
        end = std::min(end, text_.size());
        if (begin == end)
            return {};
        location_ = end;
        return text_.substr(begin, end - begin);
    }

    std::string_view text_;
    std::size_t location_ = 0;
};

} // namespace dmf::internal
