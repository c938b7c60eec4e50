#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf::internal {

/// The pieces of a URL as slices of the text that it was split from, by the rules of dmf::Url. Allocates nothing; the
/// text must outlive it. Exported for the tests; its header is not installed.
struct DMF_EXPORT UrlParts {
    std::string_view scheme;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;

    /// Nothing for a text that is no URL.
    [[nodiscard]] static std::optional<UrlParts> split(std::string_view text) noexcept;
};

/// The scheme alone, as written; nothing for a text that is no URL. Quicker than taking the whole URL apart.
[[nodiscard]] DMF_EXPORT std::optional<std::string_view> schemeOfUrl(std::string_view text) noexcept;

struct HostAndPort {
    std::string_view host; ///< as written, without brackets
    std::optional<std::string_view> port;
};
[[nodiscard]] DMF_EXPORT HostAndPort splitAuthority(std::string_view authority) noexcept;

/// As dmf::replacingPercentEscapes, without a copy where nothing is escaped: gives `text` itself or, where something
/// is, the contents of `buffer`.
[[nodiscard]] DMF_EXPORT std::optional<std::string_view> percentUnescaped(std::string_view text, std::string& buffer);

/// Percent escapes with upper-case digits for every byte that may not stand in a URL, for "%", "#", "[" and "]", and
/// for the characters `also`.
[[nodiscard]] DMF_EXPORT std::string percentEscaped(std::string_view text, std::string_view also);

} // namespace dmf::internal
