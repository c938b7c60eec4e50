#include "foundation/logging/LogText.h"

#include <cstdint>
#include <cstring>

namespace dmf::internal {

namespace {
bool isControl(unsigned char byte) noexcept
{
    return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

/// A character beyond ASCII that steers what shows it, and the length of its UTF-8; 0 and 0 for any other text. Those
/// are the control characters U+0080 to U+009F, the line and paragraph separators, and the marks, embeddings,
/// overrides and isolates of writing direction, which make a line read in another order than it stands.
struct Steering {
    char32_t character;
    std::size_t length;
};

Steering steeringAt(std::string_view text, std::size_t at) noexcept
{
    const auto byte = [&](std::size_t offset) {
        return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0U;
    };
    const bool follows = (byte(1) & 0xC0) == 0x80;
    if (byte(0) == 0xC2 && follows && byte(1) < 0xA0)
        return {byte(1), 2};
    if (byte(0) == 0xD8 && byte(1) == 0x9C)
        return {0x061C, 2};
    if (byte(0) != 0xE2 || !follows || (byte(2) & 0xC0) != 0x80)
        return {};
    const char32_t character = 0x2000 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    const bool steers = character == 0x200E || character == 0x200F || (character >= 0x2028 && character <= 0x202E) ||
                        (character >= 0x2066 && character <= 0x2069);
    return steers ? Steering{character, 3} : Steering{};
}

void appendHexadecimal(std::string& to, unsigned char byte)
{
    constexpr char kDigits[] = "0123456789abcdef";
    to += kDigits[byte >> 4];
    to += kDigits[byte & 15];
}
} // namespace

bool isPlainText(std::string_view text) noexcept
{
    // Eight bytes at a time, each in a lane of its own whose highest bit tells of a byte that is not plain. A carry out
    // of a lane comes from a byte that has told already.
    constexpr std::uint64_t kEach = 0x0101010101010101;
    std::uint64_t found = 0;
    const auto look = [&](std::uint64_t bytes) {
        const std::uint64_t deleted = bytes + kEach;                           // 0x7F becomes 0x80
        const std::uint64_t control = ~((bytes | kEach * 0x80) - kEach * ' '); // below the blank the bit goes
        found |= bytes | deleted | control;
    };
    for (; text.size() >= sizeof kEach; text.remove_prefix(sizeof kEach)) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, text.data(), sizeof bytes);
        look(bytes);
    }
    std::uint64_t rest = kEach * ' ';
    text.copy(reinterpret_cast<char*>(&rest), text.size());
    look(rest);
    return (found & kEach * 0x80) == 0;
}

bool holdsControls(std::string_view text) noexcept
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (isControl(static_cast<unsigned char>(text[at])) || steeringAt(text, at).length > 0)
            return true;
    }
    return false;
}

std::string withoutControls(std::string_view text)
{
    std::string result;
    result.reserve(text.size() + 16);
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte == '\n') {
            result += "\\n";
        } else if (byte == '\r') {
            result += "\\r";
        } else if (isControl(byte)) {
            appendHexadecimal(result += "\\x", byte);
        } else if (const Steering steering = steeringAt(text, at); steering.length > 0) {
            appendHexadecimal(result += "\\u", static_cast<unsigned char>(steering.character >> 8));
            appendHexadecimal(result, static_cast<unsigned char>(steering.character));
            at += steering.length - 1;
        } else {
            result += text[at];
        }
    }
    return result;
}

} // namespace dmf::internal
