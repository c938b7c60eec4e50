#include "modelinfo/files/XmlMerge.h"

#include <utility>

#include <dmf/ADMXMLElementImp.h>
#include <dmf/DMDictionaryExtension.h>
#include <dmf/platform/Xml.h>

namespace dmf::internal {

namespace {

/// So few children are looked through faster than they are entered.
constexpr std::size_t kFew = 8;

std::shared_ptr<ADMXMLElement> elementOf(const std::shared_ptr<ADMXMLNode>& node)
{
    return std::dynamic_pointer_cast<ADMXMLElement>(node);
}

/// A key for the children of that name that have the attribute; names and texts hold no zero bytes.
std::string keyOf(std::string_view name, std::string_view attribute = {}, std::string_view value = {})
{
    std::string key(name);
    return key.append(1, '\0').append(attribute).append(1, '\0').append(value);
}

bool fits(const ADMXMLElement& child, std::string_view name, const Dictionary& attributes)
{
    return child.name() == name && com_ql_dmf_containsObjectsFromDictionary(child.attributes(), attributes);
}

} // namespace

bool overrides(const ADMXMLElement& element)
{
    const auto attributes = element.attributes();
    const auto* const mark = attributes["override"].asString();
    return mark && *mark == "true";
}

XmlMerge::XmlMerge(ADMXMLElement& element, std::size_t depth)
    : element_(element), depth_(depth), overrides_(overrides(element))
{
    if (overrides_)
        return;
    for (const auto& node : element.children()) {
        if (auto child = elementOf(node))
            enter(std::move(child), false);
    }
}

XmlMerge::~XmlMerge() = default;

void XmlMerge::take(const ADMXMLElement& source)
{
    if (overrides_)
        return;
    for (const auto& node : source.children()) {
        const auto inherited = elementOf(node);
        Child* const found = inherited ? find(*inherited) : nullptr;
        if (!found)
            append(node);
        else if (!inherited->isLeaf()) // a leaf of the child file keeps its own value
            mergeInto(*found, *inherited);
    }
}

void XmlMerge::mergeInto(Child& found, const ADMXMLElement& inherited)
{
    // Deeper than documents go: a tree that a program built, whose depth must not become that of the stack.
    if (overrides(*found.element) || depth_ >= kXmlMaximumDepth)
        return;
    if (found.isShared) {
        const auto original = std::exchange(found.element, elementOf(found.element->copy()));
        replaced_.emplace(original.get(), &found);
        found.isShared = false;
    }
    if (!found.merge)
        found.merge = std::make_unique<XmlMerge>(*found.element, depth_ + 1);
    if (found.element->isMatrix() && inherited.isMatrix())
        found.merge->take(inherited);
    else
        found.merge->takeItems(inherited);
}

/// A list is extended by the parent's items, behind its own.
void XmlMerge::takeItems(const ADMXMLElement& source)
{
    for (const auto& node : source.children())
        append(node);
}

void XmlMerge::append(const std::shared_ptr<ADMXMLNode>& node)
{
    element_.addElement(node);
    if (auto child = elementOf(node))
        enter(std::move(child), true);
}

void XmlMerge::enter(std::shared_ptr<ADMXMLElement> child, bool isShared)
{
    last_.insert_or_assign(child->elementIdentifier(), children_.size());
    children_.push_back({std::move(child), isShared, nullptr});
}

/// The child of the same identifier, failing that the first one of that name that has all the attributes.
XmlMerge::Child* XmlMerge::find(const ADMXMLElement& inherited)
{
    const std::string name = inherited.name().value_or("");
    const Dictionary attributes = inherited.attributes();
    const auto exact = last_.find(ADMXMLElementImp::identifierNamed(name, attributes));
    return exact != last_.end() ? &children_[exact->second] : firstWith(name, attributes);
}

XmlMerge::Child* XmlMerge::firstWith(std::string_view name, const Dictionary& attributes)
{
    if (children_.size() <= kFew) {
        for (Child& child : children_)
            if (fits(*child.element, name, attributes))
                return &child;
        return nullptr;
    }
    if (const Places* const places = fewestWith(name, attributes)) {
        for (const std::size_t place : *places)
            if (fits(*children_[place].element, name, attributes))
                return &children_[place];
    }
    return nullptr;
}

/// The shortest list of children of which one must be who has all the attributes; none when nobody can be.
const XmlMerge::Places* XmlMerge::fewestWith(std::string_view name, const Dictionary& attributes)
{
    while (entered_ < children_.size())
        enterAttributes(entered_++);
    const Places* fewest = nullptr;
    const auto consider = [&](const std::string& key) {
        const auto places = having_.find(key);
        if (places != having_.end() && (!fewest || places->second.size() < fewest->size()))
            fewest = &places->second;
        return places != having_.end();
    };
    if (!consider(keyOf(name)))
        return nullptr;
    for (const auto& [attribute, value] : attributes) {
        const auto* const text = value.asString();
        if (text && plain_ && !consider(keyOf(name, attribute, *text)))
            return nullptr;
    }
    return fewest;
}

void XmlMerge::enterAttributes(std::size_t place)
{
    const ADMXMLElement& child = *children_[place].element;
    const std::string name = child.name().value_or("");
    having_[keyOf(name)].push_back(place);
    for (const auto& [attribute, value] : child.attributes()) {
        if (const auto* const text = value.asString())
            having_[keyOf(name, attribute, *text)].push_back(place);
        else
            plain_ = false; // a program's list, for one, has whatever is in it
    }
}

void XmlMerge::finish()
{
    for (Child& child : children_) {
        if (child.merge)
            child.merge->finish();
    }
    if (!replaced_.empty())
        replaceCopied();
}

void XmlMerge::replaceCopied()
{
    const auto nodes = element_.children();
    element_.removeChildren();
    for (const auto& node : nodes) {
        const auto copied = replaced_.find(node.get());
        if (copied == replaced_.end())
            element_.addElement(node);
        else
            element_.addElement(copied->second->element);
    }
}

} // namespace dmf::internal
