#pragma once

#include <dmf/platform/Value.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "service/uris/UriForms.h"

// What the forms of device URIs have in common when they are read.
namespace dmf::internal {

/// Calls `visit` with each piece between the separators; a text without one is a single piece.
template <class Visit>
void forEachPiece(std::string_view text, char separator, Visit visit)
{
    for (;;) {
        const auto end = text.find(separator);
        visit(text.substr(0, end));
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

/// The first two of the pieces between equals signs; nothing when there is only one.
[[nodiscard]] std::optional<Pair> firstTwoPieces(std::string_view element);

/// The text of an element that holds `key`, an ASCII text that ends in its only equals sign, in any letter case: the
/// element without as many characters as the key has. It is counted from the element's beginning, so it reads well only
/// where the key stands there.
[[nodiscard]] std::optional<std::string_view> textAfterKey(std::string_view element, std::string_view key);

/// What a query "vendor=V&product=P" names.
struct VendorAndModel {
    std::optional<std::string_view> vendor, model;
};
[[nodiscard]] VendorAndModel vendorAndModelIn(std::string_view query);

/// What becomes a dictionary, in the order in which a form brings it, each key once. A dictionary takes keys fast only
/// in its own order, so they are sorted once, at the end. The keys must outlive it.
class UriEntries {
public:
    /// No form has more; the key that would be one too many is left out.
    static constexpr std::size_t kMost = 8;

    void set(std::string_view key, Value value);
    void setIfPresent(std::string_view key, std::optional<std::string_view> text);
    [[nodiscard]] Dictionary dictionary() &&;

private:
    std::array<std::pair<std::string_view, Value>, kMost> entries_;
    std::size_t count_ = 0;
};

/// A whole URI, or a piece of one, with its escapes replaced, which needs the buffer only where there are any; nothing
/// when one is malformed.
[[nodiscard]] std::optional<std::string_view> unescaped(std::string_view text, std::string& buffer);

/// The entries up to the first that is missing: what a device's interface is worth without its address, nobody can
/// tell.
[[nodiscard]] Dictionary dictionaryUntilFirstMissing(
    std::initializer_list<std::pair<std::string_view, std::optional<std::string_view>>> entries);

} // namespace dmf::internal
