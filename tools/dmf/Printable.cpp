#include "Printable.h"

#include <cstdio>
#include <utility>

#include <dmf/platform/Unicode.h>

namespace dmf::tool {

namespace {

// What stands for a byte that is not UTF-8: see takeCharacter.
constexpr char32_t kFirstStray = 0xDC80;
constexpr char32_t kLastStray = 0xDCFF;

bool steers(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x061C || character == 0x200E ||
           character == 0x200F || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069) || (character >= kFirstStray && character <= kLastStray);
}

std::string escape(const char* format, char32_t character)
{
    char text[16];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(character));
    return text;
}

std::string shortEscape(char32_t character)
{
    if (character >= kFirstStray && character <= kLastStray)
        character -= kFirstStray - 0x80;
    return escape(character < 0x100 ? "\\x%02x" : "\\u%04x", character);
}

/// Each character that steers, but for those of `kept`, goes through `escaped`.
template <class Escape>
std::string withoutSteering(std::string_view text, std::string_view kept, Escape escaped)
{
    std::string result;
    while (!text.empty()) {
        const std::string_view before = text;
        const char32_t character = takeCharacter(text);
        if (steers(character) && kept.find(before.front()) == std::string_view::npos)
            result += escaped(character);
        else
            result += before.substr(0, before.size() - text.size());
    }
    return result;
}

/// How many bytes at the end begin a character, or a line end, that is not whole yet.
std::size_t unfinished(std::string_view bytes)
{
    if (bytes.ends_with('\r'))
        return 1;
    for (std::size_t count = 1; count <= 3 && count <= bytes.size(); ++count) {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - count]);
        if ((byte & 0xC0) == 0x80)
            continue; // in the middle of one
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return count < length ? count : 0;
    }
    return 0;
}

std::string shownLines(std::string_view text)
{
    std::string result;
    for (;;) {
        const auto lineEnd = text.find("\r\n");
        result += printableLines(text.substr(0, lineEnd));
        if (lineEnd == std::string_view::npos)
            return result;
        result += "\r\n";
        text.remove_prefix(lineEnd + 2);
    }
}

} // namespace

std::string printable(std::string_view text)
{
    return withoutSteering(text, {}, &shortEscape);
}

std::string printableLines(std::string_view text)
{
    return withoutSteering(text, "\n\t", &shortEscape);
}

std::string printableJson(std::string_view json)
{
    // The line ends are those between the values; inside of a string they are escaped already.
    return withoutSteering(json, "\n", [](char32_t character) { return escape("\\u%04x", character); });
}

std::string PrintableStream::take(std::string_view bytes)
{
    waiting_ += bytes;
    const auto whole = waiting_.size() - unfinished(waiting_);
    const std::string shown = shownLines(std::string_view(waiting_).substr(0, whole));
    waiting_.erase(0, whole);
    return shown;
}

std::string PrintableStream::rest()
{
    return printableLines(std::exchange(waiting_, {}));
}

} // namespace dmf::tool
