#include <dmf/ADMXMLElementImp.h>

#include <dmf/DMDictionaryExtension.h>
#include <dmf/platform/Format.h>
#include <dmf/platform/Unicode.h>

#include "modelinfo/tree/LazyFill.h"
#include "modelinfo/tree/TypeName.h"
#include "platform/documents/XmlText.h"

#include <algorithm>
#include <new>
#include <utility>

using dmf::Dictionary;

namespace {

std::string_view textOrEmpty(const dmf::Value& value)
{
    const auto* text = value.asString();
    return text ? std::string_view(*text) : std::string_view();
}

} // namespace

ADMXMLElementImp::ADMXMLElementImp(std::optional<std::string> name) : ADMXMLNodeImp(std::move(name)) {}

ADMXMLElementImp::~ADMXMLElementImp()
{
    forgetCache();
}

ADMXMLElementImp* ADMXMLElementImp::asElement() noexcept
{
    return this;
}

// Identifiers.

std::string ADMXMLElementImp::identifierNamed(std::string_view name, const Dictionary& attributes)
{
    std::string identifier(name);
    const auto append = [&](const Dictionary::Entry& attribute) {
        identifier.append(attribute.key).append(textOrEmpty(attribute.value));
    };
    if (attributes.size() < 2) {
        std::ranges::for_each(attributes, append);
        return identifier;
    }
    std::vector<std::pair<std::string, const Dictionary::Entry*>> sorted;
    for (const auto& attribute : attributes)
        sorted.emplace_back(dmf::lowercased(attribute.key), &attribute);
    std::ranges::stable_sort(sorted, {}, [](const auto& pair) -> const std::string& { return pair.first; });
    for (const auto& [folded, attribute] : sorted)
        append(*attribute);
    return identifier;
}

std::string ADMXMLElementImp::identifierNamed(std::string_view name, std::string_view attributeValue,
                                              std::string_view attribute)
{
    std::string identifier(name);
    return identifier.append(attribute).append(attributeValue);
}

const std::string& ADMXMLElementImp::identifier() const
{
    std::lock_guard guard(dmf::internal::lazyFillLock(this));
    if (!identifier_)
        identifier_ = std::make_unique<const std::string>(
            identifierNamed(name_ ? std::string_view(*name_) : std::string_view(), attributes_));
    return *identifier_; // never changes again
}

std::string ADMXMLElementImp::elementIdentifier() const
{
    return identifier();
}

// Building.

void ADMXMLElementImp::addElement(std::shared_ptr<ADMXMLNode> node)
{
    auto own = ownKind(std::move(node));
    if (!own)
        return;
    children_.push_back(own); // first, since it may fail
    if (auto* element = own->asElement()) {
        ++elementsCount_;
        // Only set where it is not: an element that another tree has as well may be read by other threads.
        if (!element->isChild_.load(std::memory_order_relaxed))
            element->isChild_.store(true, std::memory_order_relaxed);
        keepInCache(*element);
    } else if (own->kind() == ADMXMLNodeKind::text) {
        content_ = own->content();
    }
}

void ADMXMLElementImp::addChild(std::shared_ptr<ADMXMLNode> child)
{
    addElement(std::move(child));
}

void ADMXMLElementImp::removeAllElements()
{
    forgetCache();
    elementsCount_ = 0;
    std::erase_if(children_, [](const auto& child) { return child->asElement() != nullptr; });
}

void ADMXMLElementImp::removeChildAtIndex(std::size_t index)
{
    if (index >= children_.size())
        return;
    if (children_[index]->asElement()) {
        forgetCache();
        --elementsCount_;
    }
    ADMXMLNodeImp::removeChildAtIndex(index);
}

void ADMXMLElementImp::removeChildren()
{
    forgetCache();
    elementsCount_ = 0;
    ADMXMLNodeImp::removeChildren();
}

Dictionary ADMXMLElementImp::attributes() const
{
    return attributes_;
}

void ADMXMLElementImp::setAttributes(Dictionary attributes)
{
    // Its parents know it by what it was when it was added.
    if (isChild_.load(std::memory_order_relaxed))
        (void)identifier();
    attributes_ = std::move(attributes);
}

Dictionary ADMXMLElementImp::namespaces() const
{
    constexpr std::string_view declaration = "xmlns";
    Dictionary result;
    for (const auto& [name, value] : attributes_) {
        if (name == declaration)
            result.set("", value);
        else if (name.starts_with(declaration) && name[declaration.size()] == ':')
            result.set(std::string_view(name).substr(declaration.size() + 1), value);
    }
    return result;
}

// Looking up.

void ADMXMLElementImp::enter(ADMXMLElementImp& child, ElementCache& cache)
{
    const auto [entry, added] = cache.try_emplace(child.identifier(), &child);
    if (added)
        return;
    // The key must lie in the element that the entry is for.
    cache.erase(entry);
    cache.emplace(child.identifier(), &child);
}

void ADMXMLElementImp::keepInCache(ADMXMLElementImp& child) noexcept
{
    auto* const cache = elementCache_.load(std::memory_order_relaxed);
    if (!cache)
        return;
    try {
        enter(child, *cache);
    } catch (const std::bad_alloc&) {
        forgetCache(); // whoever looks for an element next makes it anew
    }
}

/// Made by the first who asks: most elements of a tree are never asked.
const ADMXMLElementImp::ElementCache& ADMXMLElementImp::elementCache() const
{
    if (const auto* made = elementCache_.load(std::memory_order_acquire))
        return *made;
    auto cache = std::make_unique<ElementCache>(elementsCount_);
    for (const auto& child : children_) {
        if (auto* element = child->asElement())
            enter(*element, *cache);
    }
    ElementCache* first = nullptr;
    // Two threads may both make it; the first one's counts.
    if (!elementCache_.compare_exchange_strong(first, cache.get(), std::memory_order_acq_rel))
        return *first;
    return *cache.release();
}

void ADMXMLElementImp::forgetCache() noexcept
{
    const std::unique_ptr<ElementCache> gone(elementCache_.exchange(nullptr, std::memory_order_relaxed));
}

ADMXMLElementImp::Pointer ADMXMLElementImp::cached(std::string_view identifier) const
{
    const ElementCache& cache = elementCache();
    const auto entry = cache.find(identifier);
    return entry == cache.end() ? nullptr
                                : std::static_pointer_cast<ADMXMLElementImp>(entry->second->shared_from_this());
}

template <class Accept>
ADMXMLElementImp::Pointer ADMXMLElementImp::first(std::string_view name, Accept accept) const
{
    for (const auto& child : children_) {
        const auto* element = child->asElement();
        if (element && element->hasName(name) && accept(element->attributes_))
            return std::static_pointer_cast<ADMXMLElementImp>(child);
    }
    return nullptr;
}

ADMXMLElementImp::Pointer ADMXMLElementImp::firstNamed(std::string_view name) const
{
    return first(name, [](const Dictionary&) { return true; });
}

ADMXMLElementImp::Pointer ADMXMLElementImp::firstNamed(std::string_view name, const Dictionary& attributes) const
{
    auto exact = cached(identifierNamed(name, attributes));
    return exact ? exact : first(name, [&](const Dictionary& all) {
        return com_ql_dmf_containsObjectsFromDictionary(all, attributes);
    });
}

ADMXMLElementImp::Pointer ADMXMLElementImp::firstNamed(std::string_view name, std::string_view value,
                                                       std::string_view attribute) const
{
    auto exact = cached(identifierNamed(name, value, attribute));
    return exact ? exact : first(name, [&](const Dictionary& all) {
        const auto* text = all[attribute].asString();
        return text && *text == value;
    });
}

std::vector<ADMXMLElementImp::Pointer> ADMXMLElementImp::allNamed(std::string_view name) const
{
    std::vector<Pointer> result;
    for (const auto& child : children_) {
        if (child->hasName(name) && child->asElement())
            result.push_back(std::static_pointer_cast<ADMXMLElementImp>(child));
    }
    return result;
}

std::shared_ptr<ADMXMLElement> ADMXMLElementImp::elementNamed(std::string_view name) const
{
    return firstNamed(name);
}

std::shared_ptr<ADMXMLElement> ADMXMLElementImp::elementNamed(std::string_view name, const Dictionary& attributes) const
{
    return firstNamed(name, attributes);
}

std::shared_ptr<ADMXMLElement> ADMXMLElementImp::elementNamed(std::string_view name, std::string_view attributeValue,
                                                              std::string_view attribute) const
{
    return firstNamed(name, attributeValue, attribute);
}

std::vector<std::shared_ptr<ADMXMLElement>> ADMXMLElementImp::elementsNamed(std::string_view name) const
{
    const auto found = allNamed(name);
    return {found.begin(), found.end()};
}

std::vector<std::shared_ptr<ADMXMLElement>> ADMXMLElementImp::elementsForXPath(std::string_view expression) const
{
    const auto found = selectedBy(expression);
    return {found.begin(), found.end()};
}

bool ADMXMLElementImp::isMatrix() const
{
    return !isLeaf() && elementCache().size() == elementsCount_;
}

bool ADMXMLElementImp::isArray() const
{
    return elementsCount_ > 1 && elementCache().size() == 1;
}

// As a whole.

std::string ADMXMLElementImp::stringRepresentation() const
{
    using dmf::internal::xml::appendEscaped;
    const std::string name = name_.value_or(std::string());
    std::string text = "<" + name;
    for (const auto& [attribute, value] : attributes_) {
        text.append(" ").append(attribute).append("=\"");
        appendEscaped(text, textOrEmpty(value), true);
        text += '"';
    }
    if (children_.empty())
        return text + "/>";
    text += '>';
    for (const auto& child : children_) {
        if (const auto* element = child->asElement())
            text += element->stringRepresentation();
        else
            appendEscaped(text, child->content().value_or(std::string()));
    }
    return text.append("</").append(name).append(">");
}

std::shared_ptr<ADMXMLNode> ADMXMLElementImp::copy() const
{
    auto result = std::make_shared<ADMXMLElementImp>(name_);
    result->attributes_ = attributes_;
    for (const auto& child : children_)
        result->addElement(child->copy());
    result->kind_ = kind_;
    result->content_ = content_;
    return result;
}

bool ADMXMLElementImp::isACopyOf(const ADMXMLNode& other) const
{
    const auto* element = dynamic_cast<const ADMXMLElementImp*>(&other);
    return element && attributes_ == element->attributes_ && ADMXMLNodeImp::isACopyOf(other);
}

std::string ADMXMLElementImp::description() const
{
    return dmf::formatted("<%@ 0x%x name = \"%@\", properties = \"%@\", contents = \"%@\">",
                          dmf::internal::typeName(typeid(*this)), reinterpret_cast<std::uintptr_t>(this), name_,
                          attributes_, stringRepresentation());
}
