#include "modelinfo/xml/ElementValue.h"

#include <dmf/ADMXMLElementImp.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Xml.h>

#include "modelinfo/xml/ElementIndex.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace dmf::internal {

Value ElementValue::of(const ADMXMLElementImp& element)
{
    ElementValue computation;
    auto result = computation.kept(element, 0);
    if (!computation.isTooDeep_)
        return std::move(result.value);
    if (DMIsLoggingEnabled())
        DMFLog("errors", "ModelInfo: the XML element '%@' has no value, since it is nested too deeply",
               std::string(element.name_.view()));
    return {};
}

SharedText ElementValue::leafText(const ADMXMLElementImp& element)
{
    if (element.kind_ != ADMXMLNodeKind::text && !element.children_.empty())
        return element.children_[0]->content_;
    return element.kind_ == ADMXMLNodeKind::text || element.holdsText_ ? element.content_ : SharedText();
}

ElementValue::Kept ElementValue::kept(const ADMXMLElementImp& element, std::size_t depth)
{
    if (auto value = element.userInfo(); !value.isNull())
        return {std::move(value), element.valueHeight_.load(std::memory_order_relaxed)};
    Kept computed;
    if (element.isLeaf())
        computed.value = leafText(element).text();
    else if (element.isArray())
        computed = list(element, depth);
    else if (element.isMatrix())
        computed = record(element, depth);
    if (computed.value.isNull() || isTooDeep_)
        return {};
    element.valueHeight_.store(static_cast<std::uint16_t>(computed.height), std::memory_order_relaxed);
    // Two threads may both compute it; they get the same one all the same.
    computed.value = element.keepValue(std::move(computed.value));
    return computed;
}

/// The value of a child, for one that is `height` high so far.
ElementValue::Kept ElementValue::within(const ADMXMLElementImp& element, std::size_t depth, std::size_t& height)
{
    isTooDeep_ = isTooDeep_ || depth >= kXmlMaximumDepth;
    auto result = isTooDeep_ ? Kept() : kept(element, depth + 1);
    height = std::max(height, result.height + 1);
    isTooDeep_ = isTooDeep_ || height > kXmlMaximumDepth;
    return result;
}

ElementValue::Kept ElementValue::list(const ADMXMLElementImp& element, std::size_t depth)
{
    Array values;
    std::size_t height = 0;
    for (const auto& child : element.children_) {
        const auto* const item = child->asElement();
        auto value = item ? within(*item, depth, height).value : Value();
        if (!value.isNull())
            values.append(std::move(value));
    }
    return {std::move(values), height};
}

ElementValue::Kept ElementValue::record(const ADMXMLElementImp& element, std::size_t depth)
{
    std::vector<Dictionary::Entry> entries;
    std::size_t height = 0;
    for (const auto& child : element.children_) {
        const auto* const entry = child->asElement();
        if (!entry)
            continue;
        auto value = within(*entry, depth, height).value;
        entries.push_back({ElementIndex::of(*entry), value.isNull() ? Value("") : std::move(value)});
    }
    return {Dictionary(std::move(entries)), height};
}

} // namespace dmf::internal
