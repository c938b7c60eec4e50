#include "modelinfo/tree/NumberText.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace dmf::internal {
namespace {

constexpr std::string_view digits = "0123456789";

/// The decimal exponent of the first digit that is not zero, as far as its sign goes.
bool isHuge(std::string_view number) noexcept
{
    const auto exponent = number.find_first_of("eE");
    if (exponent != number.npos && number.size() < 40)
        return number[exponent + 1] != '-';
    const auto first = number.find_first_of("123456789");
    return first < number.find('.');
}

} // namespace

float leadingNumber(std::string_view text) noexcept
{
    const auto start = text.find_first_not_of(" \t\n\v\f\r");
    if (start == text.npos)
        return 0;
    text.remove_prefix(start);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    // What is read as a number otherwise: "inf", "nan".
    const auto first = text.substr(text.starts_with('.') ? 1 : 0, 1);
    if (first.empty() || digits.find(first) == digits.npos)
        return 0;

    float value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range)
        value = isHuge(text.substr(0, static_cast<std::size_t>(result.ptr - text.data())))
                    ? std::numeric_limits<float>::infinity()
                    : 0;
    return negative ? -value : value;
}

} // namespace dmf::internal
