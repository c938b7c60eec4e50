#include <dmf/DMKeys.h>

#include <algorithm>
#include <vector>

#include "service/uris/UriReading.h"

namespace dmf::internal {

std::optional<Dictionary> readUniversalPath(std::string_view path)
{
    std::vector<Pair> pairs;
    forEachPiece(path, '&', [&](std::string_view element) {
        if (const auto pair = firstTwoPieces(element))
            pairs.push_back(*pair);
    });
    // Sorted, because a dictionary takes many keys fast only in the order in which it keeps them; stable, because of
    // two pairs with one key the later counts.
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.first < b.first; });

    Dictionary params;
    params.reserve(pairs.size());
    std::optional<std::string_view> type;
    for (const auto& [key, value] : pairs) {
        if (key == kConnectionTypeProp)
            type = value;
        else if (key != "/v") // the version; the slash is the one that begins the path
            params.set(key, value);
    }
    if (!type)
        return std::nullopt;
    Dictionary components;
    components.reserve(params.size() + 2);
    components.set(kConnectionTypeProp, *type);
    components.set(kParamsProp, params);
    components.merge(params);
    return components;
}

} // namespace dmf::internal
