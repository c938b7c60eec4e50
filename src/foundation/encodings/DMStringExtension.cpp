#include <dmf/DMStringExtension.h>

#include <dmf/ADMSecureData.h>

#include "foundation/encodings/Base64.h"
#include "foundation/encodings/DateParser.h"
#include "platform/text/UrlParts.h"

#include <array>
#include <utility>
#include <vector>

using dmf::Data;

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

/// The value of each ASCII character as a digit of the given alphabet, -1 for those that are none.
constexpr std::array<std::int8_t, 128> digitValues(std::string_view alphabet)
{
    std::array<std::int8_t, 128> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<std::size_t>(alphabet[i])] = static_cast<std::int8_t>(i);
    return values;
}

constexpr std::array<std::int8_t, 128> hexValues()
{
    auto values = digitValues(kHexDigits);
    for (char c = 'a'; c <= 'f'; ++c)
        values[static_cast<std::size_t>(c)] = static_cast<std::int8_t>(c - 'a' + 10);
    return values;
}

constexpr auto kHexValues = hexValues();
constexpr auto kBase64Values = digitValues(dmf::internal::kDMBase64);

int valueOf(char32_t character, const std::array<std::int8_t, 128>& values)
{
    return character < values.size() ? values[character] : -1;
}

bool isWhiteSpace(char32_t character)
{
    return dmf::CharacterSet::whitespaceAndNewlines().contains(character);
}

constexpr char32_t kEnd = 0xFFFFFFFF; // no character of any text

/// The next character that is no white space, or kEnd.
char32_t takeVisible(std::string_view& text)
{
    while (!text.empty())
        if (const char32_t character = dmf::takeCharacter(text); !isWhiteSpace(character))
            return character;
    return kEnd;
}

} // namespace

std::string com_ql_dmf_hexadecimalRepresentationString(std::string_view receiver)
{
    std::string hex;
    hex.reserve(receiver.size() * 2);
    for (const char c : receiver) {
        const auto byte = static_cast<std::uint8_t>(c);
        hex += kHexDigits[byte >> 4];
        hex += kHexDigits[byte & 15];
    }
    return hex;
}

std::optional<Data> com_ql_dmf_dataFromHexadecimalRepresentation(std::string_view receiver)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(receiver.size() / 2);
    while (!receiver.empty()) {
        const char32_t first = dmf::takeCharacter(receiver);
        // Lengths count in units of 16 bits, and a character beyond them is a pair of its own: never an odd last one.
        if (receiver.empty() && first < 0x10000)
            break;
        const int high = valueOf(first, kHexValues);
        const int low = receiver.empty() ? -1 : valueOf(dmf::takeCharacter(receiver), kHexValues);
        if (high < 0 || low < 0)
            return {};
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    return Data(std::move(bytes));
}

std::optional<std::string> com_ql_dmf_stringFromHexadecimalRepresentation(std::string_view receiver)
{
    const auto data = com_ql_dmf_dataFromHexadecimalRepresentation(receiver);
    if (!data || !dmf::isValidUtf8(data->text()))
        return {};
    return std::string(data->text());
}

std::optional<Data> com_ql_dmf_dataDecodedWithBase64(std::string_view receiver)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(receiver.size() / 4 * 3);
    std::uint32_t bits = 0; // those that have not made a whole byte yet
    int bitCount = 0;       // 0, 6, 4 and 2 in turn
    char32_t character = takeVisible(receiver);
    for (; valueOf(character, kBase64Values) >= 0; character = takeVisible(receiver)) {
        bits = bits << 6 | static_cast<std::uint32_t>(valueOf(character, kBase64Values));
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes.push_back(static_cast<std::uint8_t>(bits >> bitCount));
            bits &= (1u << bitCount) - 1;
        }
    }
    if (bitCount > 0) {
        // One "=" completes a group of three characters, two complete one of two.
        const bool isPadded = character == '=' && (bitCount == 2 || (bitCount == 4 && takeVisible(receiver) == '='));
        if (!isPadded || bits != 0)
            return {};
        character = takeVisible(receiver);
    }
    if (character != kEnd)
        return {};
    return Data(std::move(bytes));
}

std::uint32_t com_ql_dmf_MD5Hash(std::string_view receiver)
{
    return ADMSecureData().MD5HashForData(Data::fromText(receiver));
}

std::string com_ql_dmf_trimCharactersInSet(std::string_view receiver, const dmf::CharacterSet& set)
{
    const auto isTrimmed = [&](char32_t (*take)(std::string_view&) noexcept) {
        std::string_view rest = receiver;
        if (rest.empty() || !set.contains(take(rest)))
            return false;
        receiver = rest;
        return true;
    };
    while (isTrimmed(dmf::takeCharacter))
        ;
    while (isTrimmed(dmf::takeLastCharacter))
        ;
    return std::string(receiver);
}

std::string com_ql_dmf_stringByEncodingToURLNotation(std::string_view receiver)
{
    if (!dmf::isValidUtf8(receiver))
        return std::string(receiver);
    return dmf::internal::percentEscaped(receiver, ";/?:@&=+,");
}

bool com_ql_dmf_isIPv4Adress(std::string_view receiver) noexcept
{
    return receiver.find('.') != std::string_view::npos;
}

bool com_ql_dmf_isIPv6Adress(std::string_view receiver) noexcept
{
    return receiver.find(':') != std::string_view::npos;
}

bool com_ql_dmf_isIPv6LinkLocalAdress(std::string_view receiver) noexcept
{
    return dmf::equalIgnoringCase(receiver.substr(0, 6), "FE80::");
}

std::string com_ql_dmf_treatKeyStringAsFileName(std::string_view receiver)
{
    return receiver.empty() ? "_" : com_ql_dmf_hexadecimalRepresentationString(receiver);
}

std::optional<std::string> com_ql_dmf_treatFileNameStringAsKey(std::string_view receiver)
{
    if (receiver == "_")
        return std::string();
    return com_ql_dmf_stringFromHexadecimalRepresentation(receiver);
}

std::optional<dmf::Date> com_ql_dmf_dateUsingFormat(std::string_view receiver, std::string_view format)
{
    return dmf::internal::DateParser(receiver).parse(format);
}
