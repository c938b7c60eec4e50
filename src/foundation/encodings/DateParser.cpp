#include "foundation/encodings/DateParser.h"

#include <dmf/platform/Unicode.h>

#include <time.h>

#include <algorithm>
#include <chrono>

namespace dmf::internal {
namespace {

constexpr std::string_view kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                        "July",    "August",   "September", "October", "November", "December"};
constexpr std::string_view kWeekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr std::string_view kHalves[] = {"AM", "PM"};

struct Zone {
    std::string_view name;
    int hours;
};
constexpr Zone kZones[] = {{"UTC", 0},  {"GMT", 0},   {"WET", 0},   {"WEST", 1}, {"BST", 1},  {"CET", 1},  {"CEST", 2},
                           {"EET", 2},  {"EEST", 3},  {"MSK", 3},   {"JST", 9},  {"AST", -4}, {"ADT", -3}, {"EST", -5},
                           {"EDT", -4}, {"CST", -6},  {"CDT", -5},  {"MST", -7}, {"MDT", -6}, {"PST", -8}, {"PDT", -7},
                           {"Z", 0},    {"HST", -10}, {"AKST", -9}, {"AKDT", -8}};

constexpr std::size_t kShortName = 3;

constexpr bool isWhiteSpace(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

constexpr bool isLetter(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Seconds since 1970 of a time of day in the machine's time zone.
std::optional<double> localSeconds(std::chrono::year_month_day date, int hour, int minute, int second)
{
    std::tm fields{};
    fields.tm_year = int(date.year()) - 1900;
    fields.tm_mon = static_cast<int>(unsigned(date.month())) - 1;
    fields.tm_mday = static_cast<int>(unsigned(date.day()));
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = -1;
    fields.tm_wday = -1; // filled on success, which the result alone does not tell from one second before 1970
    const time_t seconds = ::mktime(&fields);
    return fields.tm_wday < 0 ? std::nullopt : std::optional(static_cast<double>(seconds));
}

} // namespace

const std::array<DateParser::Numeric, 12> DateParser::kNumbers{{
    {'Y', 4, 0, 9999, &Fields::year},
    {'y', 2, 0, 99, &Fields::year},
    {'m', 2, 1, 12, &Fields::month},
    {'d', 2, 1, 31, &Fields::day},
    {'e', 2, 1, 31, &Fields::day},
    {'j', 3, 1, 366, &Fields::dayOfYear},
    {'w', 1, 0, 6, &Fields::weekday},
    {'H', 2, 0, 23, &Fields::hour},
    {'I', 2, 1, 12, &Fields::hourOfTwelve},
    {'M', 2, 0, 59, &Fields::minute},
    {'S', 2, 0, 59, &Fields::second},
    {'F', 3, 0, 999, &Fields::millisecond},
}};

std::optional<Date> DateParser::parse(std::string_view format)
{
    while (!format.empty()) {
        const char c = format.front();
        format.remove_prefix(1);
        if (isWhiteSpace(c)) {
            takeWhiteSpace();
        } else if (c != '%') {
            if (!takeLiteral(c))
                return {};
        } else {
            if (format.empty() || !takeSpecifier(format.front()))
                return {};
            format.remove_prefix(1);
        }
    }
    return text_.empty() ? date() : std::nullopt;
}

bool DateParser::takeSpecifier(char specifier)
{
    const auto numeric = std::ranges::find(kNumbers, specifier, &Numeric::specifier);
    if (numeric != kNumbers.end()) {
        auto number = takeNumber(numeric->digits);
        if (!number || *number < numeric->smallest || *number > numeric->largest)
            return false;
        if (specifier == 'y')
            *number += *number <= 68 ? 2000 : 1900;
        fields_.*numeric->field = number;
        return true;
    }
    switch (specifier) {
    case '%': return takeLiteral('%');
    case 'a': return takeName(kWeekdays, kShortName).has_value();
    case 'A': return takeName(kWeekdays).has_value();
    case 'b':
    case 'B': {
        const auto month = takeName(kMonths, specifier == 'b' ? kShortName : std::string_view::npos);
        if (month)
            fields_.month = *month + 1;
        return month.has_value();
    }
    case 'p': {
        const auto half = takeName(kHalves);
        fields_.isAfternoon = half == 1;
        return half.has_value();
    }
    case 'z': return takeOffset();
    case 'Z': return takeZoneName();
    default: return false;
    }
}

bool DateParser::takeLiteral(char literal) noexcept
{
    if (!text_.starts_with(literal))
        return false;
    text_.remove_prefix(1);
    return true;
}

void DateParser::takeWhiteSpace() noexcept
{
    while (!text_.empty() && isWhiteSpace(text_.front()))
        text_.remove_prefix(1);
}

std::optional<int> DateParser::takeNumber(std::size_t digits) noexcept
{
    std::optional<int> number;
    for (; digits > 0 && !text_.empty() && isDigit(text_.front()); --digits) {
        number = number.value_or(0) * 10 + (text_.front() - '0');
        text_.remove_prefix(1);
    }
    return number;
}

std::optional<int> DateParser::takeName(std::span<const std::string_view> names, std::size_t letters)
{
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto name = names[i].substr(0, letters);
        if (!equalIgnoringCase(text_.substr(0, name.size()), name))
            continue;
        text_.remove_prefix(name.size());
        return static_cast<int>(i);
    }
    return {};
}

bool DateParser::takeOffset()
{
    const bool isWest = text_.starts_with('-');
    if (!isWest && !text_.starts_with('+'))
        return false;
    text_.remove_prefix(1);
    // Four digits, since "+1" would leave open whether an hour or a minute is meant.
    if (text_.size() < 4 || !std::all_of(text_.begin(), text_.begin() + 4, isDigit))
        return false;
    const auto hours = takeNumber(2);
    const auto minutes = takeNumber(2);
    if (*hours > 23 || *minutes > 59)
        return false;
    fields_.offset = (*hours * 60 + *minutes) * (isWest ? -60 : 60);
    return true;
}

bool DateParser::takeZoneName()
{
    const auto end = std::find_if_not(text_.begin(), text_.end(), isLetter);
    const auto name = text_.substr(0, static_cast<std::size_t>(end - text_.begin()));
    const auto* zone = std::ranges::find_if(kZones, [&](const Zone& one) { return equalIgnoringCase(one.name, name); });
    if (zone == std::end(kZones))
        return false;
    text_.remove_prefix(name.size());
    fields_.offset = zone->hours * 3600;
    return true;
}

std::optional<Date> DateParser::date() const
{
    using namespace std::chrono;
    const year inYear(fields_.year.value_or(2000));
    year_month_day day{inYear, month(static_cast<unsigned>(fields_.month.value_or(1))),
                       std::chrono::day(static_cast<unsigned>(fields_.day.value_or(1)))};
    if (fields_.dayOfYear && !fields_.month && !fields_.day) {
        day = sys_days(day) + days(*fields_.dayOfYear - 1);
        if (day.year() != inYear)
            return {};
    }
    if (!day.ok())
        return {};

    const int afternoon = fields_.isAfternoon ? 12 : 0;
    const int hour = fields_.hour.value_or(fields_.hourOfTwelve.value_or(0) % 12 + afternoon);
    const int minute = fields_.minute.value_or(0);
    const int second = fields_.second.value_or(0);
    const double fraction = fields_.millisecond.value_or(0) / 1000.0;
    if (fields_.offset) {
        const double midnight = static_cast<double>(sys_days(day).time_since_epoch().count()) * 86400.0;
        return Date(midnight + hour * 3600 + minute * 60 + second - *fields_.offset + fraction);
    }
    const auto seconds = localSeconds(day, hour, minute, second);
    return seconds ? std::optional(Date(*seconds + fraction)) : std::nullopt;
}

} // namespace dmf::internal
