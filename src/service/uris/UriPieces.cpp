#include "service/uris/UriPieces.h"

#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>

#include "platform/text/Ascii.h"
#include "platform/text/UrlParts.h"

namespace dmf::internal {
namespace {

bool isAscii(std::string_view text)
{
    unsigned char all = 0;
    for (const char c : text)
        all = static_cast<unsigned char>(all | static_cast<unsigned char>(c));
    return all < 0x80;
}

/// Whether the element holds `key`, an ASCII text that ends in its only equals sign, in any letter case.
bool holdsKey(std::string_view element, std::string_view key)
{
    if (element.size() < key.size())
        return false;
    for (auto at = element.find('='); at != std::string_view::npos; at = element.find('=', at + 1)) {
        const auto end = at + 1;
        if (end >= key.size() && equalIgnoringAsciiCase(element.substr(end - key.size(), key.size()), key))
            return true;
    }
    return !isAscii(element) && dmf::findIgnoringCase(element, key);
}

} // namespace

std::optional<Pair> firstTwoPieces(std::string_view element)
{
    const auto equals = element.find('=');
    if (equals == std::string_view::npos)
        return std::nullopt;
    const auto rest = element.substr(equals + 1);
    return Pair(element.substr(0, equals), rest.substr(0, rest.find('=')));
}

std::optional<std::string_view> textAfterKey(std::string_view element, std::string_view key)
{
    // Where a key belongs, which is also where its characters are bytes.
    if (equalIgnoringAsciiCase(element.substr(0, key.size()), key))
        return element.substr(key.size());
    if (!holdsKey(element, key))
        return std::nullopt;
    for (std::size_t dropped = 0; dropped < key.size() && !element.empty(); ++dropped)
        (void)dmf::takeCharacter(element);
    return element;
}

VendorAndModel vendorAndModelIn(std::string_view query)
{
    VendorAndModel found;
    forEachPiece(query, '&', [&](std::string_view element) {
        if (const auto vendor = textAfterKey(element, "vendor="))
            found.vendor = vendor;
        else if (const auto model = textAfterKey(element, "product="))
            found.model = model;
    });
    return found;
}

std::optional<std::string_view> unescaped(std::string_view text, std::string& buffer)
{
    return text.find('%') == std::string_view::npos ? text : percentUnescaped(text, buffer);
}

void UriEntries::set(std::string_view key, Value value)
{
    if (count_ < kMost)
        entries_[count_++] = {key, std::move(value)};
}

void UriEntries::setIfPresent(std::string_view key, std::optional<std::string_view> text)
{
    if (text)
        set(key, *text);
}

Dictionary UriEntries::dictionary() &&
{
    const auto end = entries_.begin() + static_cast<std::ptrdiff_t>(count_);
    std::sort(entries_.begin(), end, [](const auto& left, const auto& right) { return left.first < right.first; });
    Dictionary result;
    result.reserve(count_);
    std::for_each(entries_.begin(), end, [&](auto& entry) { result.set(entry.first, std::move(entry.second)); });
    return result;
}

Dictionary
dictionaryUntilFirstMissing(std::initializer_list<std::pair<std::string_view, std::optional<std::string_view>>> entries)
{
    UriEntries result;
    for (const auto& [key, value] : entries) {
        if (!value)
            break;
        result.set(key, *value);
    }
    return std::move(result).dictionary();
}

} // namespace dmf::internal
