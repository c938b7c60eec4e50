#include <dmf/platform/Url.h>

#include "platform/text/UrlParts.h"

namespace dmf {

std::optional<Url> Url::fromString(std::string_view text)
{
    const auto parts = internal::UrlParts::split(text);
    if (!parts)
        return {};
    const auto sliceOf = [&](std::string_view part) {
        return Slice{static_cast<std::size_t>(part.data() - text.data()), part.size()};
    };
    const auto optionalSliceOf = [&](const std::optional<std::string_view>& part) {
        return part ? sliceOf(*part) : Slice{};
    };
    Url url;
    url.text_ = text;
    url.scheme_ = sliceOf(parts->scheme);
    url.authority_ = optionalSliceOf(parts->authority);
    url.path_ = sliceOf(parts->path);
    url.query_ = optionalSliceOf(parts->query);
    return url;
}

std::optional<std::string_view> Url::optionalSlice(Slice part) const noexcept
{
    return part.length == std::string::npos ? std::nullopt : std::optional(slice(part));
}

std::optional<std::string_view> Url::authority() const noexcept
{
    return optionalSlice(authority_);
}

std::optional<std::string> Url::host() const
{
    const auto host = internal::splitAuthority(authority().value_or("")).host;
    return host.empty() ? std::nullopt : replacingPercentEscapes(host);
}

std::optional<std::string_view> Url::portText() const noexcept
{
    return internal::splitAuthority(authority().value_or("")).port;
}

std::string Url::path() const
{
    return replacingPercentEscapes(slice(path_)).value_or(std::string());
}

std::optional<std::string_view> Url::query() const noexcept
{
    return optionalSlice(query_);
}

std::optional<std::string> replacingPercentEscapes(std::string_view text)
{
    std::string buffer;
    const auto unescaped = internal::percentUnescaped(text, buffer);
    if (!unescaped)
        return {};
    return unescaped->data() == buffer.data() ? std::move(buffer) : std::string(*unescaped);
}

} // namespace dmf
