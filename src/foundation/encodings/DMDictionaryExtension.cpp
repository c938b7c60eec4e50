#include <dmf/DMDictionaryExtension.h>

#include <algorithm>

using dmf::Array;
using dmf::Dictionary;
using dmf::Value;

namespace {

bool holds(const Array& mine, const Value& theirs)
{
    if (const auto* elements = theirs.asArray())
        return std::all_of(elements->begin(), elements->end(), [&](const Value& one) { return mine.contains(one); });
    return mine.contains(theirs);
}

} // namespace

bool com_ql_dmf_containsObjectsFromDictionary(const Dictionary& receiver, const Dictionary& other)
{
    return std::all_of(other.begin(), other.end(), [&](const Dictionary::Entry& entry) {
        const auto& [key, theirs] = entry;
        const Value& mine = receiver[key];
        if (const auto* array = mine.asArray())
            return holds(*array, theirs);
        if (const auto* dictionary = mine.asDictionary()) {
            const auto* wanted = theirs.asDictionary();
            return com_ql_dmf_containsObjectsFromDictionary(*dictionary, wanted ? *wanted : Dictionary{{key, theirs}});
        }
        return mine == theirs; // never when there is none: dictionaries hold no null values
    });
}
