#include "Script.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string>
#include <vector>

namespace dmf::simulated {

namespace {
template <class T>
void readNumber(const Dictionary& parameters, const char* key, T& target)
{
    const auto text = parameters.string(key);
    std::int64_t number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc())
        return;
    if (number >= std::int64_t{std::numeric_limits<T>::min()} && number <= std::int64_t{std::numeric_limits<T>::max()})
        target = static_cast<T>(number);
}

void readDelay(const Dictionary& parameters, const char* key, Milliseconds& target)
{
    std::int32_t milliseconds = static_cast<std::int32_t>(target.count());
    readNumber(parameters, key, milliseconds);
    target = Milliseconds(std::max(milliseconds, 0));
}

void readLimit(const Dictionary& parameters, const char* key, std::optional<std::uint64_t>& target)
{
    std::int64_t bytes = -1;
    readNumber(parameters, key, bytes);
    if (bytes >= 0)
        target = static_cast<std::uint64_t>(bytes);
}

void readFlag(const Dictionary& parameters, const char* key, bool& target)
{
    if (const auto text = parameters.string(key))
        target = *text != "0" && *text != "no";
}

std::optional<Data> fromHexadecimal(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        std::uint8_t byte = 0;
        const auto [end, problem] = std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
        if (problem != std::errc() || end != text.data() + i + 2)
            return std::nullopt;
        bytes.push_back(byte);
    }
    if (text.size() % 2 != 0)
        return std::nullopt;
    return Data(std::move(bytes));
}

void readBytes(const Dictionary& parameters, const std::string& key, Data& target)
{
    if (const auto text = parameters.string(key))
        target = Data::fromText(*text);
    if (const auto digits = parameters.string(key + "Hex"))
        if (auto bytes = fromHexadecimal(*digits))
            target = std::move(*bytes);
}
} // namespace

Script Script::fromParameters(const Dictionary& parameters)
{
    Script script;
    readFlag(parameters, "reachable", script.isReachable);
    readNumber(parameters, "foundAfter", script.foundAfter);
    readDelay(parameters, "searchDelay", script.searchDelay);
    readDelay(parameters, "openDelay", script.openDelay);
    readNumber(parameters, "openStatus", script.openStatus);
    readNumber(parameters, "packetSize", script.packetSize);
    script.packetSize = std::clamp<std::uint32_t>(script.packetSize, 1, 1024 * 1024);
    readBytes(parameters, "greeting", script.greeting);
    readBytes(parameters, "answer", script.answer);
    script.echoes = script.answer.text() == "@echo";
    readDelay(parameters, "answerDelay", script.answerDelay);
    readLimit(parameters, "endAfter", script.endAfter);
    readNumber(parameters, "readStatus", script.readStatus);
    readFlag(parameters, "neverReads", script.neverReads);
    readDelay(parameters, "writeDelay", script.writeDelay);
    readLimit(parameters, "breakAfter", script.breakAfter);
    readNumber(parameters, "writeStatus", script.writeStatus);
    return script;
}

} // namespace dmf::simulated
