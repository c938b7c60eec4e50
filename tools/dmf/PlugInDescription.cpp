#include "PlugInDescription.h"

#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>

#include <algorithm>
#include <numeric>
#include <string_view>

namespace dmf::tool {

namespace {

using Words = std::vector<std::string_view>;

constexpr std::size_t kNear = 2; // single letters to change, add or take away

const Words& knownKeys()
{
    static const Words keys{kBundleExecutableKey,
                            kPlugInInterfaceNumberKey,
                            kDMServiceConnectionType,
                            kDMPlugInProtocol2ImplementorMap,
                            kDMPlugInClasses,
                            kDMPlugInProtocolName,
                            kDMMockScheme,
                            kDMMockIOProvider,
                            kDMMockFactories,
                            "DMChannelNames",
                            "CFBundleIdentifier",
                            "CFBundleName",
                            "CFBundleVersion"};
    return keys;
}

const Words& knownInterfaces()
{
    static const Words interfaces{"IDMDevice",     "ADMDuplexDataChannel", "IDMServiceDiscovery",
                                  "ADMIOProvider", "ADMXMLParser",         "ADMServiceResolver"};
    return interfaces;
}

char lowered(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// How many letters have to be changed, added or taken away; capitals are no matter.
std::size_t distance(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t k = 0; k < right.size(); ++k) {
            const std::size_t changed = diagonal + (lowered(left[i]) == lowered(right[k]) ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({changed, row[k] + 1, row[k + 1] + 1});
        }
    }
    return row.back();
}

void compare(const Dictionary& words, const Words& known, std::vector<Misspelling>& found)
{
    for (const auto& [word, value] : words) {
        if (std::ranges::find(known, word) != known.end())
            continue;
        for (const std::string_view meant : known) {
            const std::size_t longer = std::max(word.size(), meant.size());
            if (longer - std::min(word.size(), meant.size()) <= kNear && distance(word, meant) <= kNear) {
                found.push_back({word, std::string(meant)});
                break;
            }
        }
    }
}

} // namespace

std::vector<std::string> textsUnder(const Dictionary& description, std::string_view key)
{
    const Value value = description[key];
    std::vector<std::string> texts;
    if (const auto* text = value.asString())
        texts.push_back(*text);
    if (const auto* list = value.asArray()) {
        for (const Value& element : *list) {
            if (const auto* text = element.asString())
                texts.push_back(*text);
        }
    }
    return texts;
}

std::vector<Misspelling> misspellingsIn(const Dictionary& description)
{
    std::vector<Misspelling> found;
    compare(description, knownKeys(), found);
    if (const auto* map = description[kDMPlugInProtocol2ImplementorMap].asDictionary())
        compare(*map, knownInterfaces(), found);
    return found;
}

} // namespace dmf::tool
