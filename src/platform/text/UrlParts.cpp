#include "platform/text/UrlParts.h"

#include <dmf/platform/Unicode.h>

#include <array>
#include <cstdint>

namespace dmf::internal {
namespace {

enum Trait : std::uint8_t {
    kLegal = 1,      ///< may stand in a URL somewhere
    kEndsQuery = 2,  ///< "#"
    kEndsPath = 4,   ///< "#" and "?"
    kEndsHost = 8,   ///< "#", "?" and "/"
    kInScheme = 16,  ///< letters, digits, "+", "-" and "."
    kUnescaped = 32, ///< stands as it is in an escaped text, unless it is asked for
    kEscape = 64     ///< "%"
};

constexpr bool isLetter(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr std::array<std::uint8_t, 256> makeTraits() noexcept
{
    std::array<std::uint8_t, 256> traits{};
    const auto add = [&](std::string_view characters, int added) {
        for (const char c : characters)
            traits[static_cast<std::uint8_t>(c)] |= static_cast<std::uint8_t>(added);
    };
    add("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", kLegal | kInScheme | kUnescaped);
    add("-.", kLegal | kInScheme | kUnescaped);
    add("_~!$&'()*,;=:@", kLegal | kUnescaped);
    add("+", kLegal | kInScheme | kUnescaped);
    add("[]", kLegal);
    add("%", kLegal | kEscape); // as far as two digits follow
    add("/", kLegal | kUnescaped | kEndsHost);
    add("?", kLegal | kUnescaped | kEndsHost | kEndsPath);
    add("#", kLegal | kEndsHost | kEndsPath | kEndsQuery);
    return traits;
}

constexpr auto kTraits = makeTraits();

constexpr bool has(char c, Trait trait) noexcept
{
    return (kTraits[static_cast<std::uint8_t>(c)] & trait) != 0;
}

constexpr int hexValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// The byte that the escape at the front of `text` stands for; negative when there is no proper one.
constexpr int escapedByte(std::string_view text) noexcept
{
    if (text.size() < 3 || hexValue(text[1]) < 0 || hexValue(text[2]) < 0)
        return -1;
    return hexValue(text[1]) << 4 | hexValue(text[2]);
}

bool isLegal(std::string_view text) noexcept
{
    // Without a branch for each character: texts are legal as a rule.
    std::uint8_t common = kLegal;
    std::uint8_t any = 0;
    for (const char c : text) {
        const std::uint8_t traits = kTraits[static_cast<std::uint8_t>(c)];
        common &= traits;
        any |= traits;
    }
    if (common == 0 || (any & kEscape) == 0)
        return common != 0;
    for (auto percent = text.find('%'); percent != std::string_view::npos; percent = text.find('%', percent + 3)) {
        if (escapedByte(text.substr(percent)) < 0)
            return false;
    }
    return true;
}

/// Takes everything before the next character with the trait off the front of `text`.
std::string_view takeUpTo(std::string_view& text, Trait trait) noexcept
{
    std::size_t length = 0;
    while (length < text.size() && !has(text[length], trait))
        ++length;
    const auto taken = text.substr(0, length);
    text.remove_prefix(length);
    return taken;
}

} // namespace

std::optional<std::string_view> schemeOfUrl(std::string_view text) noexcept
{
    if (text.empty() || !isLetter(text.front()))
        return {};
    std::size_t colon = 1;
    while (colon < text.size() && has(text[colon], kInScheme))
        ++colon;
    if (colon == text.size() || text[colon] != ':' || !isLegal(text.substr(colon + 1)))
        return {};
    return text.substr(0, colon);
}

std::optional<UrlParts> UrlParts::split(std::string_view text) noexcept
{
    const auto scheme = schemeOfUrl(text);
    if (!scheme)
        return {};
    UrlParts parts;
    parts.scheme = *scheme;
    std::string_view rest = text.substr(scheme->size() + 1);
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        parts.authority = takeUpTo(rest, kEndsHost);
    }
    parts.path = takeUpTo(rest, kEndsPath);
    if (rest.starts_with('?')) {
        rest.remove_prefix(1);
        parts.query = takeUpTo(rest, kEndsQuery);
    }
    if (rest.starts_with('#'))
        parts.fragment = rest.substr(1);
    return parts;
}

HostAndPort splitAuthority(std::string_view authority) noexcept
{
    if (const auto user = authority.rfind('@'); user != std::string_view::npos)
        authority.remove_prefix(user + 1);
    if (authority.starts_with('[')) {
        if (const auto bracket = authority.find(']'); bracket != std::string_view::npos) {
            const auto after = authority.substr(bracket + 1);
            const auto host = authority.substr(1, bracket - 1);
            return {host, after.starts_with(':') ? std::optional(after.substr(1)) : std::nullopt};
        }
    }
    const auto colon = authority.find(':');
    if (colon == std::string_view::npos || authority.find(':', colon + 1) != std::string_view::npos)
        return {authority, {}};
    return {authority.substr(0, colon), authority.substr(colon + 1)};
}

std::optional<std::string_view> percentUnescaped(std::string_view text, std::string& buffer)
{
    std::string_view result = text;
    if (auto percent = text.find('%'); percent != std::string_view::npos) {
        buffer.clear();
        buffer.reserve(text.size());
        while (percent != std::string_view::npos) {
            buffer += text.substr(0, percent);
            text.remove_prefix(percent);
            const int byte = escapedByte(text);
            if (byte < 0)
                return {};
            buffer += static_cast<char>(byte);
            text.remove_prefix(3);
            percent = text.find('%');
        }
        buffer += text;
        result = buffer;
    }
    return isValidUtf8(result) ? std::optional(result) : std::nullopt;
}

std::string percentEscaped(std::string_view text, std::string_view also)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size() + text.size() / 4);
    for (const char c : text) {
        if (has(c, kUnescaped) && also.find(c) == std::string_view::npos) {
            result += c;
            continue;
        }
        const auto byte = static_cast<std::uint8_t>(c);
        result += '%';
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result;
}

} // namespace dmf::internal
