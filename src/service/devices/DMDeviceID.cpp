#include <dmf/DMDeviceID.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <dmf/platform/Unicode.h>

namespace {

bool has(DMCompareOptions options, DMCompareOptions wanted)
{
    return (static_cast<unsigned>(options) & static_cast<unsigned>(wanted)) != 0;
}

std::optional<std::size_t> find(std::string_view text, std::string_view searched, DMCompareOptions options)
{
    std::optional<std::size_t> place;
    if (has(options, DMCompareOptions::caseInsensitive)) {
        if (const auto range = dmf::findIgnoringCase(text, searched))
            place = range->location;
    } else if (const auto found = text.find(searched); !searched.empty() && found != std::string_view::npos) {
        place = found;
    }
    return place && (*place == 0 || !has(options, DMCompareOptions::anchored)) ? place : std::nullopt;
}

/// Calls `visit` with each item of a list separated by ",", the blanks before it cut off, and with its position;
/// `visit` ends the walk by returning true.
template <class Visit>
bool walkItems(std::string_view list, Visit visit)
{
    for (std::size_t start = 0; start < list.size();) {
        const auto item = DelimitSubstring(list, ",", static_cast<std::ptrdiff_t>(start),
                                           static_cast<std::ptrdiff_t>(list.size() - start), DMCompareOptions::none);
        const auto location = static_cast<std::size_t>(item.location);
        const auto length = static_cast<std::size_t>(std::max<std::ptrdiff_t>(item.length, 0));
        if (length > 0 && visit(list.substr(location, length), location))
            return true;
        start = location + length + 1; // past the comma
    }
    return false;
}

/// Takes the text up to `separator` off the front of `rest`.
std::string_view takeField(std::string_view& rest, char separator)
{
    const auto end = rest.find(separator);
    const auto field = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return field;
}

bool containsAny(std::string_view text, std::initializer_list<std::string_view> searched)
{
    return std::ranges::any_of(searched, [&](std::string_view one) { return text.find(one) != text.npos; });
}

/// A channel number as scanf's " %lu" reads it: blanks, a sign, digits; whatever follows does not count.
std::optional<unsigned long> leadingNumber(std::string_view text)
{
    const auto begin = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(begin == text.npos ? text.size() : begin);
    if (text.starts_with('+'))
        text.remove_prefix(1);
    if (text.empty() || text.front() < '0' || text.front() > '9')
        return {};
    unsigned long number = 0;
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
        // Beyond every channel number it does not matter how far.
        if (number <= std::numeric_limits<std::uint16_t>::max())
            number = number * 10 + static_cast<unsigned long>(text.front() - '0');
    }
    return number;
}

struct Output {
    char** slot;
    std::initializer_list<std::string_view> keys;
};

} // namespace

DMRange DelimitSubstring(std::string_view string, std::string_view delimiter, std::ptrdiff_t start,
                         std::ptrdiff_t length, DMCompareOptions options)
{
    const auto size = static_cast<std::ptrdiff_t>(string.size());
    start = std::clamp<std::ptrdiff_t>(start, 0, size);
    length = std::min(length, size - start);
    while (length > 0 && string[static_cast<std::size_t>(start)] == ' ') {
        ++start;
        --length;
    }
    if (length <= 0)
        return {start, length};
    const auto rest = string.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length));
    if (const auto end = find(rest, delimiter, options))
        return {start, static_cast<std::ptrdiff_t>(*end)};
    return {start, length};
}

std::optional<std::string> DeviceIDCreateValueList(std::string_view deviceID, std::string_view key,
                                                   std::optional<std::string_view> alternateKey)
{
    auto found = dmf::findIgnoringCase(deviceID, key);
    if (!found && alternateKey)
        found = dmf::findIgnoringCase(deviceID, *alternateKey);
    if (!found)
        return {};
    const auto start = found->location + found->length;
    const auto value =
        DelimitSubstring(deviceID, ";", static_cast<std::ptrdiff_t>(start),
                         static_cast<std::ptrdiff_t>(deviceID.size() - start), DMCompareOptions::caseInsensitive);
    return std::string(deviceID.substr(static_cast<std::size_t>(value.location),
                                       static_cast<std::size_t>(std::max<std::ptrdiff_t>(value.length, 0))));
}

bool ParseDeviceStatusCFString(std::string_view deviceID, std::optional<std::string>* model,
                               std::optional<std::string>* manufacturer, std::optional<std::string>* description)
{
    bool complete = true;
    const auto read = [&](std::optional<std::string>* output, std::string_view key, std::string_view alternateKey) {
        if (!output)
            return;
        *output = DeviceIDCreateValueList(deviceID, key, alternateKey);
        complete = complete && output->has_value();
    };
    read(model, "MDL:", "MODEL:");
    read(manufacturer, "MFG:", "MANUFACTURER:");
    read(description, "DES:", "DESCRIPTION:");
    return complete;
}

bool ParseDeviceStatusString(const char* deviceID, char** model, char** manufacturer, char** description)
{
    // The order decides which output a key that fits several goes to.
    const Output outputs[] = {
        {manufacturer, {"MFG", "MANUFACTURER"}}, {model, {"MDL", "MODEL"}}, {description, {"MODEL", "DES"}}};
    for (const Output& output : outputs)
        if (output.slot)
            *output.slot = nullptr;
    if (!deviceID)
        return false;

    for (std::string_view rest(deviceID); !rest.empty();) {
        std::string_view value = takeField(rest, ';');
        if (value.find(':') == value.npos)
            continue;
        const auto key = takeField(value, ':');
        const auto* output = std::ranges::find_if(
            outputs, [&](const Output& one) { return one.slot && !*one.slot && containsAny(key, one.keys); });
        if (output == std::end(outputs))
            continue;
        *output->slot = ::strndup(value.data(), value.size());
        if (!*output->slot)
            return false;
    }
    return true;
}

bool CheckBiDiChannelExists(const char* deviceID, std::uint16_t channel)
{
    for (std::string_view rest(deviceID ? deviceID : ""); !rest.empty();) {
        std::string_view field = takeField(rest, ';');
        const auto begin = field.find_first_not_of(" \t");
        field.remove_prefix(begin == field.npos ? field.size() : begin);
        if (!field.starts_with("BD:"))
            continue;
        for (field.remove_prefix(3); !field.empty();)
            if (leadingNumber(takeField(field, ',')) == channel)
                return true;
        return false;
    }
    return false;
}

DMRange DeviceIDSupportedValue(std::string_view value, std::string_view deviceID, std::string_view key,
                               std::optional<std::string_view> alternateKey)
{
    const auto supported = DeviceIDCreateValueList(deviceID, key, alternateKey);
    if (!supported)
        return {};
    const auto options = dmf::findIgnoringCase(deviceID, key)
                             ? DMCompareOptions::caseInsensitive
                             : DMCompareOptions::caseInsensitive | DMCompareOptions::anchored;
    DMRange result;
    walkItems(*supported, [&](std::string_view deviceItem, std::size_t) {
        return walkItems(value, [&](std::string_view valueItem, std::size_t location) {
            if (!find(valueItem, deviceItem, options))
                return false;
            result = {static_cast<std::ptrdiff_t>(location), static_cast<std::ptrdiff_t>(value.size() - location)};
            return true;
        });
    });
    return result;
}
