#include "DeviceId.h"

#include <algorithm>
#include <initializer_list>

#include <dmf/platform/Unicode.h>

namespace dmf::usb {

namespace {
constexpr std::size_t kLengthSize = 2;

bool isPrintable(char c)
{
    return c >= 0x20 && c < 0x7F;
}

bool isControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string_view trimmed(std::string_view text)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// How many bytes of text the answer has by its own account, as far as that can be true.
std::size_t toldLength(std::span<const std::uint8_t> answer)
{
    const auto present = answer.size() - kLengthSize;
    const auto told = static_cast<std::size_t>(answer[0] << 8 | answer[1]);
    // Padding behind a text that ends before is all that a shorter length can mean. One that leaves itself out, or is
    // in the other byte order, shows by the answer's own length, and then the answer is what there is.
    return told > kLengthSize && told < present ? told - kLengthSize : present;
}

struct Field {
    std::string_view key;
    std::string_view value;
};

/// Takes the next "KEY:value" off the front of the text; nothing at its end.
std::optional<Field> takeField(std::string_view& text)
{
    while (!text.empty()) {
        const auto end = std::min(text.find(';'), text.size());
        const auto field = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const auto colon = field.find(':');
        if (colon != std::string_view::npos && !trimmed(field.substr(0, colon)).empty())
            return Field{trimmed(field.substr(0, colon)), trimmed(field.substr(colon + 1))};
    }
    return std::nullopt;
}

std::optional<std::string> valueOf(std::string_view deviceId, std::initializer_list<std::string_view> keys)
{
    while (const auto field = takeField(deviceId)) {
        const bool isKey = std::any_of(keys.begin(), keys.end(),
                                       [&](std::string_view key) { return equalIgnoringCase(field->key, key); });
        const bool isGood = std::all_of(field->value.begin(), field->value.end(), isPrintable);
        if (isKey && isGood && !field->value.empty())
            return std::string(field->value);
    }
    return std::nullopt;
}
} // namespace

std::optional<std::string> deviceIdIn(std::span<const std::uint8_t> answer)
{
    if (answer.size() <= kLengthSize)
        return std::nullopt;
    std::string text;
    for (const auto byte : answer.subspan(kLengthSize, toldLength(answer))) {
        if (byte == 0)
            break;
        text.push_back(static_cast<char>(byte));
    }
    auto rest = std::string_view(text);
    if (!takeField(rest))
        return std::nullopt;
    return std::string(trimmed(text));
}

Names namesIn(std::string_view deviceId)
{
    return {valueOf(deviceId, {"MFG", "MANUFACTURER"}), valueOf(deviceId, {"MDL", "MODEL"}),
            trueSerialNumber(valueOf(deviceId, {"SN", "SERN", "SERIALNUMBER"})),
            valueOf(deviceId, {"DES", "DESCRIPTION"})};
}

std::optional<std::string> plainText(std::string_view text)
{
    text = trimmed(text);
    if (text.empty() || std::any_of(text.begin(), text.end(), isControl) || !isValidUtf8(text))
        return std::nullopt;
    return std::string(text);
}

std::optional<std::string> trueSerialNumber(const std::optional<std::string>& text)
{
    if (!text || text->empty() || equalIgnoringCase(*text, "none") || equalIgnoringCase(*text, "n/a"))
        return std::nullopt;
    const bool isFiller = std::all_of(text->begin(), text->end(), [](char c) {
        return c == '0' || c == 'F' || c == 'f' || c == ' ' || c == '-' || c == '?';
    });
    return isFiller ? std::nullopt : text;
}

} // namespace dmf::usb
