#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

/// A point in time with sub-microsecond resolution, counted in seconds since 1970-01-01 00:00:00 UTC. Immutable.
class DMF_EXPORT Date {
public:
    constexpr Date() noexcept = default;
    explicit constexpr Date(double secondsSince1970) noexcept : seconds_(secondsSince1970) {}

    [[nodiscard]] static Date now();
    [[nodiscard]] static Date afterNow(double seconds);
    [[nodiscard]] static constexpr Date distantFuture() noexcept { return Date(64'092'211'200.0); } // 4001-01-01
    [[nodiscard]] static constexpr Date distantPast() noexcept { return Date(-62'135'769'600.0); }  // 0001-01-01

    /// Reads "2026-11-22 20:15:00 +0100" (year-month-day, hours:minutes:seconds, signed four-digit offset from UTC);
    /// nothing for any other text or for fields out of their range.
    [[nodiscard]] static std::optional<Date> fromString(std::string_view text);

    [[nodiscard]] constexpr double secondsSince1970() const noexcept { return seconds_; }
    /// Seconds from `earlier` to this date; negative when this date comes first.
    [[nodiscard]] constexpr double timeIntervalSince(Date earlier) const noexcept
    {
        return seconds_ - earlier.seconds_;
    }
    [[nodiscard]] constexpr Date addingTimeInterval(double seconds) const noexcept { return Date(seconds_ + seconds); }

    /// "2026-11-22 19:15:00 +0000": UTC, fractions of a second left out.
    [[nodiscard]] std::string description() const;

    friend constexpr auto operator<=>(Date, Date) noexcept = default;

private:
    double seconds_ = 0;
};

} // namespace dmf
