#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

/// A URL split by the generic syntax of RFC 3986, more lenient than it where device URIs need that: what follows the
/// host's colon need not be a number, an IPv6 address may stand without brackets, and the host keeps its letter case.
/// Immutable.
class DMF_EXPORT Url {
public:
    /// Refuses (nothing): white space, control characters, bytes beyond ASCII, characters that may not stand in a URI,
    /// "%" without two hexadecimal digits after it, and text without a scheme.
    [[nodiscard]] static std::optional<Url> fromString(std::string_view text);

    [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }
    /// The scheme as it was written, without its colon.
    [[nodiscard]] std::string_view scheme() const noexcept { return slice(scheme_); }
    /// What stands between "//" and the next "/", "?" or "#", as written; nothing when there is no "//".
    [[nodiscard]] std::optional<std::string_view> authority() const noexcept;
    /// The host with its escapes replaced, without user information, brackets and whatever follows its colon;
    /// nothing when it is missing, empty or not UTF-8. An unbracketed host with more than one colon is an IPv6 address
    /// as a whole.
    [[nodiscard]] std::optional<std::string> host() const;
    /// What follows the host's colon, as written; nothing when there is no colon.
    [[nodiscard]] std::optional<std::string_view> portText() const noexcept;
    /// The path with its escapes replaced; empty when there is none or the result would not be UTF-8.
    [[nodiscard]] std::string path() const;
    /// The query as written, without its "?"; nothing when there is none.
    [[nodiscard]] std::optional<std::string_view> query() const noexcept;

    friend bool operator==(const Url& left, const Url& right) noexcept { return left.text_ == right.text_; }

private:
    struct Slice {
        std::size_t begin = 0;
        std::size_t length = std::string::npos; // npos: missing
    };
    Url() = default;
    [[nodiscard]] std::string_view slice(Slice part) const noexcept
    {
        return std::string_view(text_).substr(part.begin, part.length);
    }
    [[nodiscard]] std::optional<std::string_view> optionalSlice(Slice part) const noexcept;

    std::string text_;
    Slice scheme_, authority_, path_, query_;
};

/// Replaces every percent escape; nothing when an escape is malformed or the result is not UTF-8.
[[nodiscard]] DMF_EXPORT std::optional<std::string> replacingPercentEscapes(std::string_view text);

} // namespace dmf
