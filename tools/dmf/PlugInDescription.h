#pragma once

#include <string>
#include <vector>

#include <dmf/platform/Value.h>

// What a plug-in's description says for people, and what its author may have meant.
namespace dmf::tool {

/// The texts under a key that holds one or an array of them.
[[nodiscard]] std::vector<std::string> textsUnder(const Dictionary& description, std::string_view key);

struct Misspelling {
    std::string word; ///< as it stands in the description
    std::string meant;
};

/// Keys of the description, and names of interfaces in it, that are nearly but not quite those which the library knows.
/// Others are a plug-in's own and take part in matching, so nothing can be said against them.
[[nodiscard]] std::vector<Misspelling> misspellingsIn(const Dictionary& description);

} // namespace dmf::tool
