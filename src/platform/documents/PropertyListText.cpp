#include "platform/documents/PropertyListText.h"

#include "platform/documents/XmlText.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <span>
#include <vector>

namespace dmf::internal::plist {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t noDigit = 0xFF;

constexpr auto digitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}();

/// Takes exactly `count` decimal digits and the character `after` (none for 0) off the front.
std::optional<unsigned> takeField(std::string_view& text, std::size_t count, char after) noexcept
{
    unsigned value = 0;
    if (text.size() < count + (after ? 1 : 0) || (after && text[count] != after))
        return std::nullopt;
    for (std::size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return std::nullopt;
        value = value * 10 + static_cast<unsigned>(text[i] - '0');
    }
    text.remove_prefix(count + (after ? 1 : 0));
    return value;
}

/// What stands between the seconds and the final "Z".
std::optional<double> fractionFromText(std::string_view text) noexcept
{
    if (text.empty())
        return 0.0;
    double fraction = 0;
    const auto end = text.data() + text.size();
    if (text.size() < 2 || text[0] != '.' || text.find_first_not_of("0123456789", 1) != text.npos ||
        std::from_chars(text.data(), end, fraction).ptr != end)
        return std::nullopt;
    return fraction;
}

} // namespace

std::optional<Number> integerFromText(std::string_view text) noexcept
{
    text = xml::trimmed(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal)
        text.remove_prefix(2);
    std::uint64_t magnitude = 0;
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!negative)
        return magnitude <= largest ? Number(static_cast<std::int64_t>(magnitude)) : Number(magnitude);
    if (magnitude > largest + 1)
        return std::nullopt;
    return Number(static_cast<std::int64_t>(0 - magnitude));
}

std::optional<Number> realFromText(std::string_view text) noexcept
{
    text = xml::trimmed(text);
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    double value = 0;
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(Number(value)) : std::nullopt;
}

std::optional<Date> dateFromText(std::string_view text) noexcept
{
    text = xml::trimmed(text);
    const auto year = takeField(text, 4, '-');
    const auto month = takeField(text, 2, '-');
    const auto day = takeField(text, 2, 'T');
    const auto hour = takeField(text, 2, ':');
    const auto minute = takeField(text, 2, ':');
    const auto second = takeField(text, 2, '\0');
    if (!year || !month || !day || !hour || !minute || !second || !text.ends_with('Z'))
        return std::nullopt;
    text.remove_suffix(1);
    const auto fraction = fractionFromText(text);
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(*year)), std::chrono::month(*month),
                                           std::chrono::day(*day));
    if (!fraction || !date.ok() || *hour > 23 || *minute > 59 || *second > 59)
        return std::nullopt;
    const auto days = std::chrono::sys_days(date).time_since_epoch().count();
    return Date(static_cast<double>(days) * 86400.0 + *hour * 3600.0 + *minute * 60.0 + *second + *fraction);
}

std::optional<Data> dataFromText(std::string_view text)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    unsigned digits = 0;
    unsigned pads = 0;
    for (const char& c : text) {
        if (xml::isSpace(c))
            continue;
        const std::uint8_t digit = digitValues[static_cast<unsigned char>(c)];
        if (c == '=' && digits + pads >= 2)
            ++pads;
        else if (digit == noDigit || pads > 0)
            return std::nullopt;
        else
            ++digits;
        group = group << 6 | (c == '=' ? 0u : digit);
        if (digits + pads < 4)
            continue;
        // Two pads leave one byte of the group, one pad leaves two.
        for (unsigned i = 0; i + pads < 3; ++i)
            bytes.push_back(static_cast<std::uint8_t>(group >> (16 - 8 * i)));
        group = 0;
        digits = 0;
        if (pads > 0 && !xml::isWhitespace(text.substr(static_cast<std::size_t>(&c - text.data()) + 1)))
            return std::nullopt;
        if (pads > 0)
            return Data(std::move(bytes));
    }
    return digits + pads == 0 ? std::optional(Data(std::move(bytes))) : std::nullopt;
}

std::optional<std::string> textFromDate(Date date)
{
    const double whole = std::floor(date.secondsSince1970());
    // The comparison also refuses what is not a number.
    if (!(whole >= Date::distantPast().secondsSince1970() && whole < 253'402'300'800.0))
        return std::nullopt;
    const auto seconds = std::chrono::seconds(static_cast<std::int64_t>(whole));
    const auto days = std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(seconds));
    const std::chrono::year_month_day day(days);
    const std::chrono::hh_mm_ss time(std::chrono::sys_seconds(seconds) - days);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", int{day.year()}, unsigned{day.month()},
                  unsigned{day.day()}, static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    std::string result = text;
    const double fraction = date.secondsSince1970() - whole;
    if (fraction > 0) {
        const auto end = std::to_chars(text, text + sizeof text, fraction, std::chars_format::fixed).ptr;
        result.append(text + 1, end); // without the zero before the point
    }
    return result + "Z";
}

void appendBase64(std::string& text, const Data& data)
{
    const auto bytes = data.bytes();
    text.reserve(text.size() + (bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto group = bytes.subspan(i, std::min<std::size_t>(3, bytes.size() - i));
        std::uint32_t word = 0;
        for (std::size_t k = 0; k < 3; ++k)
            word = word << 8 | (k < group.size() ? group[k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= group.size() ? alphabet[word >> (18 - 6 * k) & 63] : '=';
    }
}

} // namespace dmf::internal::plist
