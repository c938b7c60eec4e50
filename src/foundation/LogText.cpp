#include "LogText.h"

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

bool holdsControls(std::string_view text) noexcept
{
    // Nearly every line is free of them, which a loop without a way out tells many bytes at a time.
    bool mayHold = false;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        mayHold |= (byte < 0x20) | (byte == 0x7F) | (byte == kHighControlLead);
    }
    if (!mayHold)
        return false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (isControl(byte) || (byte == kHighControlLead && isHighControl(text, at)))
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
