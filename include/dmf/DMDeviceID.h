#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

/// Functions on device ID strings (IEEE 1284): fields of the form KEY:value, separated by ";", for example
/// "MFG:QL;MDL:Model 9;DES:Model 9 Printer;SN:CN1234;BD:1,2;". They come from devices, so any bytes are accepted, of
/// any length; nothing below ever reads past them. Positions and lengths count bytes. All are thread-safe.

/// A range of a string. A location of -1 stands for "nothing found"; a length may be negative where that is said.
struct DMRange {
    std::ptrdiff_t location = -1;
    std::ptrdiff_t length = 0;
    friend bool operator==(const DMRange&, const DMRange&) = default;
};

/// How a text is searched; the values can be combined with "|".
enum class DMCompareOptions : unsigned {
    none = 0,
    caseInsensitive = 1,
    anchored = 8, ///< only a match at the very start of the searched range counts
};
constexpr DMCompareOptions operator|(DMCompareOptions left, DMCompareOptions right) noexcept
{
    return static_cast<DMCompareOptions>(static_cast<unsigned>(left) | static_cast<unsigned>(right));
}

/// Cuts one item out of `string`: from `start`, past leading blanks (" "), up to `delimiter` or to the end of the
/// `length` bytes. When nothing but blanks is there the rest is handed back as it is, with a length of 0 or less. A
/// range that reaches beyond the string is cut to it.
[[nodiscard]] DMF_EXPORT DMRange DelimitSubstring(std::string_view string, std::string_view delimiter,
                                                  std::ptrdiff_t start, std::ptrdiff_t length,
                                                  DMCompareOptions options);

/// The value of the field with the key (written with its colon, "MFG:"), else with the alternate key: leading blanks
/// dropped, up to the next ";" or the end. Letter case of keys does not count, and a key is found wherever it stands,
/// inside another field's value too. Nothing when neither key occurs.
[[nodiscard]] DMF_EXPORT std::optional<std::string>
DeviceIDCreateValueList(std::string_view deviceID, std::string_view key,
                        std::optional<std::string_view> alternateKey = std::nullopt);

/// Reads the model ("MDL:", else "MODEL:"), the manufacturer ("MFG:", else "MANUFACTURER:") and the description
/// ("DES:", else "DESCRIPTION:") into those outputs that are not null. True when each of them was found; an output
/// whose field is missing becomes empty.
DMF_EXPORT bool ParseDeviceStatusCFString(std::string_view deviceID, std::optional<std::string>* model,
                                          std::optional<std::string>* manufacturer,
                                          std::optional<std::string>* description);

/// The same for C strings, by other rules: a field counts when its key contains, in that letter case, "MFG" or
/// "MANUFACTURER" (manufacturer), else "MDL" or "MODEL" (model), else "MODEL" or "DES" (description), and the first
/// of each wins; so a second "MODEL" field gives the description. Outputs may be null; those that are not are set to
/// null first, in every case, and then to new strings that the caller releases with `free`. True, also when nothing was
/// found; false for a null device ID or without memory.
DMF_EXPORT bool ParseDeviceStatusString(const char* deviceID, char** model, char** manufacturer, char** description);

/// Whether the first field that begins with "BD:" (blanks and tabs before it are skipped) lists the channel number.
[[nodiscard]] DMF_EXPORT bool CheckBiDiChannelExists(const char* deviceID, std::uint16_t channel);

/// Looks for the first item of the device ID's list under the key (else the alternate key) that occurs inside an item
/// of `value`, both lists being separated by ",". Gives the position of that item of `value` and the number of bytes
/// from there to the end of `value`; location -1, length 0 when there is none. Letter case does not count. When only
/// the alternate key occurs, the item must begin with the device's item.
[[nodiscard]] DMF_EXPORT DMRange DeviceIDSupportedValue(std::string_view value, std::string_view deviceID,
                                                        std::string_view key,
                                                        std::optional<std::string_view> alternateKey = std::nullopt);
