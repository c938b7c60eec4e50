#include <dmf/platform/Date.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "platform/host/Host.h"

namespace dmf {
namespace {

/// Reads exactly `digits` decimal digits off the front of `text`.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits)
{
    if (text.size() < digits || text.front() == '-' || text.front() == '+')
        return {};
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
    if (error != std::errc() || end != text.data() + digits)
        return {};
    text.remove_prefix(digits);
    return number;
}

bool takeLiteral(std::string_view& text, char literal)
{
    if (text.empty() || text.front() != literal)
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

Date Date::now()
{
    return Date(internal::Host::current().now());
}

Date Date::afterNow(double seconds)
{
    return now().addingTimeInterval(seconds);
}

std::optional<Date> Date::fromString(std::string_view text)
{
    const auto year = takeNumber(text, 4);
    if (!year || !takeLiteral(text, '-'))
        return {};
    const auto month = takeNumber(text, 2);
    if (!month || !takeLiteral(text, '-'))
        return {};
    const auto day = takeNumber(text, 2);
    if (!day || !takeLiteral(text, ' '))
        return {};
    const auto hours = takeNumber(text, 2);
    if (!hours || !takeLiteral(text, ':'))
        return {};
    const auto minutes = takeNumber(text, 2);
    if (!minutes || !takeLiteral(text, ':'))
        return {};
    const auto seconds = takeNumber(text, 2);
    if (!seconds || !takeLiteral(text, ' '))
        return {};
    const bool negative = !text.empty() && text.front() == '-';
    if (!negative && (text.empty() || text.front() != '+'))
        return {};
    text.remove_prefix(1);
    const auto offsetHours = takeNumber(text, 2);
    const auto offsetMinutes = offsetHours ? takeNumber(text, 2) : std::nullopt;
    if (!offsetMinutes || !text.empty())
        return {};

    const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                           std::chrono::day(static_cast<unsigned>(*day))};
    if (!date.ok() || *hours > 23 || *minutes > 59 || *seconds > 59 || *offsetHours > 23 || *offsetMinutes > 59)
        return {};
    const auto days = std::chrono::sys_days(date).time_since_epoch().count();
    const int offset = (*offsetHours * 60 + *offsetMinutes) * (negative ? -60 : 60);
    return Date(static_cast<double>(days) * 86400.0 + *hours * 3600 + *minutes * 60 + *seconds - offset);
}

std::string Date::description() const
{
    // Beyond these limits a calendar date says nothing any more.
    const double clamped = std::clamp(seconds_, distantPast().seconds_, Date(253'402'300'799.0).seconds_);
    const auto whole = static_cast<std::int64_t>(std::floor(clamped));
    const auto dayNumber = whole >= 0 ? whole / 86400 : -((-whole + 86399) / 86400);
    const auto secondOfDay = static_cast<int>(whole - dayNumber * 86400);
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(dayNumber))};
    char text[40];
    const int length = std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d +0000", int(date.year()),
                                     unsigned(date.month()), unsigned(date.day()), secondOfDay / 3600,
                                     secondOfDay / 60 % 60, secondOfDay % 60);
    return std::string(text, static_cast<std::size_t>(length));
}

} // namespace dmf
