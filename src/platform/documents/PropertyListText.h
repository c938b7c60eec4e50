#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Data.h>
#include <dmf/platform/Date.h>
#include <dmf/platform/Value.h>

/// The scalars of property lists as text. White space around a scalar is ignored; nothing for malformed text. No
/// function looks at the host's locale. All thread-safe.
namespace dmf::internal::plist {

/// Decimal, or hexadecimal after "0x"; signed as long as that fits, else unsigned.
[[nodiscard]] std::optional<Number> integerFromText(std::string_view text) noexcept;
[[nodiscard]] std::optional<Number> realFromText(std::string_view text) noexcept;
/// "2040-02-29T12:00:01Z"; a fraction of a second may follow the seconds.
[[nodiscard]] std::optional<Date> dateFromText(std::string_view text) noexcept;
/// Base64, with white space anywhere.
[[nodiscard]] std::optional<Data> dataFromText(std::string_view text);

/// Nothing for a date outside the years 1 to 9999.
[[nodiscard]] std::optional<std::string> textFromDate(Date date);
void appendBase64(std::string& text, const Data& data);

} // namespace dmf::internal::plist
