#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

#include <dmf/platform/Date.h>

namespace dmf::internal {

/// Reads one text by one format; see com_ql_dmf_dateUsingFormat for the rules.
class DateParser {
public:
    explicit DateParser(std::string_view text) noexcept : text_(text) {}
    [[nodiscard]] std::optional<Date> parse(std::string_view format);

private:
    /// What the text said. Months and days count from 1, offsets are seconds east of UTC.
    struct Fields {
        std::optional<int> year, month, day, dayOfYear, weekday, hour, hourOfTwelve, minute, second, millisecond,
            offset;
        bool isAfternoon = false;
    };
    struct Numeric {
        char specifier;
        std::size_t digits;
        int smallest, largest;
        std::optional<int> Fields::*field;
    };

    bool takeSpecifier(char specifier);
    bool takeLiteral(char literal) noexcept;
    void takeWhiteSpace() noexcept;
    [[nodiscard]] std::optional<int> takeNumber(std::size_t digits) noexcept;
    /// The place in the list of the name that stands there; `letters` limits how many letters of the names count.
    [[nodiscard]] std::optional<int> takeName(std::span<const std::string_view> names,
                                              std::size_t letters = std::string_view::npos);
    bool takeOffset();
    bool takeZoneName();
    [[nodiscard]] std::optional<Date> date() const;

    static const std::array<Numeric, 12> kNumbers;
    std::string_view text_;
    Fields fields_;
};

} // namespace dmf::internal
