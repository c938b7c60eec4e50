#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Data.h>
#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Unicode.h>

// Conversions of strings. All thread-safe and the same in every locale; strings are UTF-8.

/// Two upper-case hexadecimal digits for each byte; empty for the empty string.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_hexadecimalRepresentationString(std::string_view receiver);
/// One byte for each pair of hexadecimal digits of either case, high half first. An odd last character is ignored
/// whatever it is; any other character that is no digit gives nothing.
[[nodiscard]] DMF_EXPORT std::optional<dmf::Data>
com_ql_dmf_dataFromHexadecimalRepresentation(std::string_view receiver);
/// The same bytes as a string; nothing when they are not UTF-8.
[[nodiscard]] DMF_EXPORT std::optional<std::string>
com_ql_dmf_stringFromHexadecimalRepresentation(std::string_view receiver);

/// Reads base64 (RFC 4648, the standard alphabet). White space is skipped wherever it stands; padding is required and
/// its left-over bits must be zero. Nothing for any other text; empty data for an empty one.
[[nodiscard]] DMF_EXPORT std::optional<dmf::Data> com_ql_dmf_dataDecodedWithBase64(std::string_view receiver);

/// The MD5 fold of the bytes; see ADMSecureData::MD5HashForData.
[[nodiscard]] DMF_EXPORT std::uint32_t com_ql_dmf_MD5Hash(std::string_view receiver);

/// The string without the leading and trailing characters that belong to the set.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_trimCharactersInSet(std::string_view receiver,
                                                                    const dmf::CharacterSet& set);

/// The string as a part of a URL: percent escapes (upper-case digits) for everything that may not stand in a URL and
/// for ";/?:@&=+,". A string that is not UTF-8 comes back unchanged.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_stringByEncodingToURLNotation(std::string_view receiver);

/// These three only tell forms of an address apart, in strings known to be addresses: a "." anywhere, a ":" anywhere,
/// "FE80::" of either case at the beginning.
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_isIPv4Adress(std::string_view receiver) noexcept;
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_isIPv6Adress(std::string_view receiver) noexcept;
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_isIPv6LinkLocalAdress(std::string_view receiver) noexcept;

/// A file name that stands for any key: "_" for the empty one, else its hexadecimal text.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_treatKeyStringAsFileName(std::string_view receiver);
/// The key that such a file name stands for; nothing when it stands for none.
[[nodiscard]] DMF_EXPORT std::optional<std::string> com_ql_dmf_treatFileNameStringAsKey(std::string_view receiver);

/// Reads a date by a format of the specifiers below; nothing when the text does not fit the format from end to end or
/// names no possible date. Names are English, of either letter case; numbers may leave out leading zeros.
///
///     %Y %y   year with and without century (00 to 68 are 2000 to 2068)
///     %m %b %B   month as a number, its short and its full name
///     %d %e %j   day of the month, the same, day of the year
///     %a %A %w   weekday, short, full and as a number from Sunday (0); read, but it decides nothing
///     %H %I %p   hour of 24, hour of 12, "AM" or "PM"
///     %M %S %F   minute, second, millisecond
///     %z %Z   offset from UTC ("+0100"), name of a time zone ("UTC", "PST")
///     %%      a percent sign
///
/// White space in the format stands for any amount of it in the text; everything else stands for itself. What the
/// format leaves out is that of 2000-01-01 00:00:00 in the local time zone.
[[nodiscard]] DMF_EXPORT std::optional<dmf::Date> com_ql_dmf_dateUsingFormat(std::string_view receiver,
                                                                             std::string_view format);
