#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The cases of a text that has a bar between each two of them, the empty ones too.
inline std::vector<std::string> pieces(std::string_view text)
{
    std::vector<std::string> result(1);
    for (const char c : text)
        c == '|' ? result.emplace_back() : result.back() += c;
    return result;
}
