#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf::internal {

/// Takes a text apart piece by piece. Blanks and line ends before each piece are skipped; inside a piece they count.
/// Letter case counts. An operation that fails leaves the scanner where it was. Allocates nothing; the text must
/// outlive the scanner and what it gives. Reentrant. Exported for the tests; its header is not installed.
class DMF_EXPORT StringScanner {
public:
    explicit StringScanner(std::string_view text) noexcept : text_(text) {}

    /// What stands before the next `stop`, or up to the end without one; nothing when that is empty.
    std::optional<std::string_view> scanUpTo(std::string_view stop) noexcept;
    /// The same with any of the ASCII characters `stops`.
    std::optional<std::string_view> scanUpToAnyOf(std::string_view stops) noexcept;
    /// Skips `piece`; false when something else stands there.
    bool scan(std::string_view piece) noexcept;
    /// Skips a run of the ASCII characters `characters`; false when none stands there.
    bool scanAnyOf(std::string_view characters) noexcept;

    /// What is left, blanks before it included.
    [[nodiscard]] std::string_view remaining() const noexcept { return text_.substr(location_); }
    /// Whether nothing but blanks and line ends is left.
    [[nodiscard]] bool atEnd() const noexcept { return afterBlanks() == text_.size(); }

private:
    [[nodiscard]] std::size_t afterBlanks() const noexcept;
    std::optional<std::string_view> take(std::size_t begin, std::size_t end) noexcept;

    std::string_view text_;
    std::size_t location_ = 0;
};

} // namespace dmf::internal
