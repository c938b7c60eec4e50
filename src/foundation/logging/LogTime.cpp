#include "foundation/logging/LogTime.h"

#include <time.h>

#include <cstdint>
#include <cstring>

#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

constexpr std::size_t kSecondLength = kLogTimeLength - 3;

// The text of the second that this thread last wrote: a busy thread writes many lines in one second.
thread_local std::int64_t tSecond = INT64_MIN;
thread_local char tText[kSecondLength];

void writeDigits(char* text, int count, int value) noexcept
{
    for (char* digit = text + count; digit != text; value /= 10)
        *--digit = static_cast<char>('0' + value % 10);
}

void formatSecond(std::int64_t second) noexcept
{
    // localtime_r alone would stay with the zone that it met first. This costs a look at the environment and at the
    // zone's file, once a second.
    ::tzset();
    const auto time = static_cast<time_t>(second);
    struct tm local {};
    ::localtime_r(&time, &local);
    std::memcpy(tText, "00000000T00:00:00.", kSecondLength);
    writeDigits(tText, 4, local.tm_year + 1900);
    writeDigits(tText + 4, 2, local.tm_mon + 1);
    writeDigits(tText + 6, 2, local.tm_mday);
    writeDigits(tText + 9, 2, local.tm_hour);
    writeDigits(tText + 12, 2, local.tm_min);
    writeDigits(tText + 15, 2, local.tm_sec);
    tSecond = second;
}

} // namespace

void writeLogTime(char* text) noexcept
{
    const double now = Host::current().now();
    auto second = static_cast<std::int64_t>(now);
    if (static_cast<double>(second) > now)
        --second; // before 1970
    if (second != tSecond)
        formatSecond(second);
    std::memcpy(text, tText, kSecondLength);
    writeDigits(text + kSecondLength, 3, static_cast<int>((now - static_cast<double>(second)) * 1000));
}

} // namespace dmf::internal
