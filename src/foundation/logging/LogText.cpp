#include "foundation/logging/LogText.h"

#include <cstdint>
#include <cstring>

namespace dmf::internal {

namespace {
/// The control characters beyond ASCII, U+0080 to U+009F, are this byte and one more.
constexpr unsigned char kHighControlLead = 0xC2;

bool isControl(unsigned char byte) noexcept
{
    return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

bool isHighControl(std::string_view text, std::size_t at) noexcept
{
    return static_cast<unsigned char>(text[at]) == kHighControlLead && at + 1 < text.size() &&
           static_cast<unsigned char>(text[at + 1]) < 0xA0;
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
        if (isControl(static_cast<unsigned char>(text[at])) || isHighControl(text, at))
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
        } else if (isHighControl(text, at)) {
            appendHexadecimal(result += "\\u00", static_cast<unsigned char>(text[++at]));
        } else {
            result += text[at];
        }
    }
    return result;
}

} // namespace dmf::internal
