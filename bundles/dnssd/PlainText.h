#pragma once

#include <string_view>

#include <dmf/platform/Unicode.h>

namespace dmf::dnssd {

/// Whether it is UTF-8 without control characters (U+0000 to U+001F, U+007F to U+009F).
[[nodiscard]] inline bool isPlainText(std::string_view text)
{
    unsigned char before = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || (before == 0xC2 && byte < 0xA0))
            return false;
        before = byte;
    }
    return isValidUtf8(text);
}

} // namespace dmf::dnssd
