#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

/// Text operations on UTF-8, the same in every locale. Bytes that are not UTF-8 are kept as they are and belong to no
/// class of characters. All thread-safe.
[[nodiscard]] DMF_EXPORT bool isValidUtf8(std::string_view text) noexcept;
/// Letter case changes character by character, so a text keeps its number of characters.
[[nodiscard]] DMF_EXPORT std::string lowercased(std::string_view text);
[[nodiscard]] DMF_EXPORT std::string uppercased(std::string_view text);
/// Equality and search without regard to letter case (simple folding, character by character).
[[nodiscard]] DMF_EXPORT bool equalIgnoringCase(std::string_view left, std::string_view right);
/// The byte range of the first occurrence of `searched` in `text` from byte `from` on, or nothing; an empty search
/// text is never found. The length can differ from that of `searched`, since case folding may change it.
struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;
    friend bool operator==(TextRange, TextRange) = default;
};
[[nodiscard]] DMF_EXPORT std::optional<TextRange> findIgnoringCase(std::string_view text, std::string_view searched,
                                                                   std::size_t from = 0);

/// A set of Unicode characters. Immutable, cheap to copy, thread-safe. A byte that is not UTF-8 (see takeCharacter)
/// belongs to no set but the inverse of one.
class DMF_EXPORT CharacterSet {
public:
    [[nodiscard]] static const CharacterSet& whitespace();            ///< Unicode Zs and the tab
    [[nodiscard]] static const CharacterSet& whitespaceAndNewlines(); ///< the same and line ends
    [[nodiscard]] static const CharacterSet& letters();               ///< Unicode L* and M*
    [[nodiscard]] static const CharacterSet& decimalDigits();         ///< Unicode Nd
    [[nodiscard]] static const CharacterSet& alphanumerics();         ///< Unicode L*, M* and N*
    [[nodiscard]] static CharacterSet ofCharacters(std::string_view utf8);
    [[nodiscard]] CharacterSet inverted() const;
    [[nodiscard]] CharacterSet unitedWith(const CharacterSet& other) const;

    [[nodiscard]] bool contains(char32_t character) const
    {
        return character < 128 ? (ascii_[character / 64] >> (character % 64) & 1) != 0 : (*beyondAscii_)(character);
    }
    /// Whether any character of `utf8` belongs to the set.
    [[nodiscard]] bool containsAnyOf(std::string_view utf8) const;

private:
    using Test = std::function<bool(char32_t)>;
    explicit CharacterSet(Test contains);
    std::array<std::uint64_t, 2> ascii_{};
    std::shared_ptr<const Test> beyondAscii_;
};

/// Takes the next character off the front of `text`. A byte that is not part of valid UTF-8 comes as U+DC80 plus its
/// low seven bits, so it can be told from every real character. `text` must not be empty.
[[nodiscard]] DMF_EXPORT char32_t takeCharacter(std::string_view& text) noexcept;
/// The same at the end of `text`.
[[nodiscard]] DMF_EXPORT char32_t takeLastCharacter(std::string_view& text) noexcept;
/// Appends a character in UTF-8, or the byte that one of takeCharacter's stand-ins stands for.
DMF_EXPORT void appendCharacter(std::string& text, char32_t character);

} // namespace dmf
