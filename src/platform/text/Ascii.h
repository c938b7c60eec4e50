#pragma once

#include <cstddef>
#include <string_view>

namespace dmf::internal {

/// Equality without regard to the case of ASCII letters; any other byte counts as it is.
[[nodiscard]] constexpr bool equalIgnoringAsciiCase(std::string_view left, std::string_view right) noexcept
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    if (left.size() != right.size())
        return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (lower(left[i]) != lower(right[i]))
            return false;
    }
    return true;
}

} // namespace dmf::internal
