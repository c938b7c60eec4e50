#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// `text` that many times over; quick even for hundreds of megabytes in an unoptimised build.
inline std::string repeated(std::string_view text, std::size_t count)
{
    std::string result(text);
    result.reserve(text.size() * count);
    while (result.size() < text.size() * count)
        result.append(result, 0, text.size() * count - result.size());
    result.resize(text.size() * count);
    return result;
}
