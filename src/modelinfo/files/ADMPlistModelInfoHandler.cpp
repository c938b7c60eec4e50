#include <dmf/ADMPlistModelInfoHandler.h>

#include <dmf/ADMPlistInfoElement.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/PropertyList.h>

#include "modelinfo/files/ModelInfoLog.h"
#include "modelinfo/files/ParentChain.h"
#include "modelinfo/files/Spared.h"

namespace {

/// What stands under a key that both dictionaries have.
dmf::Value mergedEntry(const dmf::Value& own, const dmf::Value& inherited)
{
    const dmf::Dictionary* const ownDictionary = own.asDictionary();
    const dmf::Dictionary* const inheritedDictionary = inherited.asDictionary();
    if (!ownDictionary || !inheritedDictionary)
        return own;
    return ADMPlistModelInfoHandler::mergeModelInfo(*ownDictionary, *inheritedDictionary);
}

void takeOutRemovedKeys(dmf::Dictionary& dictionary)
{
    const dmf::Value removed = dictionary[kDMRemoveKey];
    if (removed.isNull())
        return;
    if (const dmf::Array* const keys = removed.asArray()) {
        for (const dmf::Value& key : *keys) {
            if (const std::string* const text = key.asString())
                dictionary.remove(*text);
        }
    }
    dictionary.remove(kDMRemoveKey);
}

} // namespace

std::shared_ptr<ADMPlistModelInfoHandler> ADMPlistModelInfoHandler::initWithData(dmf::Data data, std::string table)
{
    if (data.empty())
        return nullptr;
    return std::shared_ptr<ADMPlistModelInfoHandler>(new ADMPlistModelInfoHandler(std::move(data), std::move(table)));
}

ADMPlistModelInfoHandler::ADMPlistModelInfoHandler(dmf::Data data, std::string table)
    : table_(std::move(table)), data_(std::move(data))
{
}

ADMPlistModelInfoHandler::~ADMPlistModelInfoHandler() = default;

std::shared_ptr<ADMInfo> ADMPlistModelInfoHandler::info()
{
    return dmf::internal::spared("reading a model file", [&] {
        std::lock_guard guard(lock_);
        if (!root_) {
            const dmf::internal::BuildingTree building(*this);
            root_ = ADMPlistInfoElement::plistInfoWithName({}, mergedValue());
            data_.clear();
        }
        return root_;
    });
}

dmf::Value ADMPlistModelInfoHandler::mergedValue() const
{
    std::string reason;
    const std::optional<dmf::Value> parsed = dmf::PropertyList::parse(data_.bytes(), &reason);
    if (!parsed) {
        dmf::internal::logModelInfo("errors", "ModelInfo: cannot parse a property list in '%@' table: %@", table_,
                                    reason);
        return {};
    }
    const dmf::Dictionary* const own = parsed->asDictionary();
    const std::optional<std::string> parentName = own ? own->string(kDMParentNameKey) : std::nullopt;
    if (!parentName)
        return *parsed;
    const std::shared_ptr<ADMInfo> parent = dmf::internal::parentInfo(*parentName, table_);
    const dmf::Value inherited = parent ? parent->value() : dmf::Value();
    return inherited.asDictionary() ? mergeModelInfo(*own, *inherited.asDictionary()) : *parsed;
}

dmf::Dictionary ADMPlistModelInfoHandler::mergeModelInfo(const dmf::Dictionary& modelInfo,
                                                         const dmf::Dictionary& withModelInfo)
{
    // Both keep their keys sorted, so one walk along both meets every key once, in the order of the result.
    dmf::Dictionary merged;
    merged.reserve(modelInfo.size() + withModelInfo.size());
    auto own = modelInfo.begin();
    auto inherited = withModelInfo.begin();
    while (own != modelInfo.end() || inherited != withModelInfo.end()) {
        const int order = own == modelInfo.end()             ? 1
                          : inherited == withModelInfo.end() ? -1
                                                             : own->key.compare(inherited->key);
        if (order < 0)
            merged.set(own->key, own->value);
        else if (order > 0)
            merged.set(inherited->key, inherited->value);
        else
            merged.set(own->key, mergedEntry(own->value, inherited->value));
        if (order <= 0)
            ++own;
        if (order >= 0)
            ++inherited;
    }
    takeOutRemovedKeys(merged);
    return merged;
}
