#include <dmf/ADMXMLElementImp.h>

#include <dmf/DMDictionaryExtension.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Format.h>

#include "modelinfo/tree/LazyFill.h"
#include "modelinfo/tree/NumberText.h"
#include "modelinfo/tree/TypeName.h"
#include "modelinfo/xml/ElementIndex.h"
#include "modelinfo/xml/ElementPath.h"
#include "modelinfo/xml/ElementText.h"
#include "modelinfo/xml/ElementValue.h"

#include <new>
#include <utility>

using dmf::Dictionary;
using dmf::internal::ElementIndex;
using dmf::internal::ElementPath;
using dmf::internal::ElementText;
using dmf::internal::ElementValue;
using dmf::internal::NodeList;
using dmf::internal::SharedText;

ADMXMLElementImp::ADMXMLElementImp(std::optional<std::string> name) : ADMXMLNodeImp(std::move(name)) {}

ADMXMLElementImp::~ADMXMLElementImp()
{
    forgetIndex();
}

ADMXMLElementImp* ADMXMLElementImp::asElement() noexcept
{
    return this;
}

// Identifiers.

std::string ADMXMLElementImp::identifierNamed(std::string_view name, const Dictionary& attributes)
{
    std::string identifier;
    ElementIndex::append(identifier, name, attributes);
    return identifier;
}

std::string ADMXMLElementImp::identifierNamed(std::string_view name, std::string_view attributeValue,
                                              std::string_view attribute)
{
    std::string identifier(name);
    return identifier.append(attribute).append(attributeValue);
}

std::string ADMXMLElementImp::elementIdentifier() const
{
    markIdentified();
    return ElementIndex::of(*this);
}

void ADMXMLElementImp::markIdentified() const noexcept
{
    // Only set where it is not: an element that another tree has as well may be read by other threads.
    if (!isIdentified_.load(std::memory_order_relaxed))
        isIdentified_.store(true, std::memory_order_relaxed);
}

// Building.

void ADMXMLElementImp::addElement(std::shared_ptr<ADMXMLNode> node)
{
    auto own = ownKind(std::move(node));
    if (!own)
        return;
    makeTextNode();
    children_.append(own); // first, since it may fail
    if (const auto* const element = own->asElement()) {
        ++elementsCount_;
        element->markIdentified();
        if (auto* const index = index_.load(std::memory_order_relaxed)) {
            try {
                index->enter(children_.size() - 1);
            } catch (const std::bad_alloc&) {
                forgetIndex(); // whoever looks for an element next makes it anew
            }
        }
    } else if (own->kind() == ADMXMLNodeKind::text) {
        content_ = own->content_;
    }
}

void ADMXMLElementImp::addChild(std::shared_ptr<ADMXMLNode> child)
{
    addElement(std::move(child));
}

/// Takes all children in one go, in place of none.
void ADMXMLElementImp::adopt(std::span<std::shared_ptr<ADMXMLNodeImp>> nodes)
{
    for (const auto& node : nodes) {
        if (const auto* const element = node->asElement()) {
            ++elementsCount_;
            element->markIdentified();
        } else {
            content_ = node->content_;
        }
    }
    children_.adopt(nodes);
}

/// Takes a text for its only child, where it has none.
void ADMXMLElementImp::holdText(std::string_view text)
{
    content_ = SharedText(text);
    holdsText_ = true;
}

void ADMXMLElementImp::makeTextNode()
{
    if (holdsText_)
        (void)madeChildren();
    holdsText_ = false; // from here on it is a child like others
}

const NodeList& ADMXMLElementImp::madeChildren() const
{
    if (!holdsText_ || !children_.empty())
        return children_;
    auto text = std::make_shared<ADMXMLNodeImp>(std::nullopt);
    text->kind_ = ADMXMLNodeKind::text;
    text->content_ = content_;
    // Two threads may both make it; the first one's counts.
    std::lock_guard guard(dmf::internal::lazyFillLock(this));
    if (children_.empty())
        children_.append(std::move(text));
    return children_;
}

void ADMXMLElementImp::setContent(std::optional<std::string> content)
{
    makeTextNode();
    ADMXMLNodeImp::setContent(std::move(content));
}

void ADMXMLElementImp::removeAllElements()
{
    forgetIndex();
    elementsCount_ = 0;
    children_.keep([](ADMXMLNodeImp& child) { return child.asElement() == nullptr; });
}

void ADMXMLElementImp::removeChildAtIndex(std::size_t index)
{
    makeTextNode();
    if (index >= children_.size())
        return;
    forgetIndex(); // which knows the children by their places
    if (children_[index]->asElement())
        --elementsCount_;
    ADMXMLNodeImp::removeChildAtIndex(index);
}

void ADMXMLElementImp::removeChildren()
{
    forgetIndex();
    elementsCount_ = 0;
    holdsText_ = false;
    ADMXMLNodeImp::removeChildren();
}

Dictionary ADMXMLElementImp::attributes() const
{
    return attributes_;
}

void ADMXMLElementImp::setAttributes(Dictionary attributes)
{
    // Others know it by what it was.
    if (!identifier_ && isIdentified_.load(std::memory_order_relaxed))
        identifier_ = std::make_unique<const std::string>(ElementIndex::of(*this));
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

/// Made by the first who asks: most elements of a tree are never asked.
const ElementIndex& ADMXMLElementImp::index() const
{
    if (const auto* made = index_.load(std::memory_order_acquire))
        return *made;
    auto own = std::make_unique<ElementIndex>(children_, elementsCount_);
    ElementIndex* first = nullptr;
    // Two threads may both make it; the first one's counts.
    if (!index_.compare_exchange_strong(first, own.get(), std::memory_order_acq_rel))
        return *first;
    return *own.release();
}

void ADMXMLElementImp::forgetIndex() noexcept
{
    const std::unique_ptr<ElementIndex> gone(index_.exchange(nullptr, std::memory_order_relaxed));
}

ADMXMLElementImp::Pointer ADMXMLElementImp::known(std::string_view identifier) const
{
    auto* const found = elementsCount_ > ElementIndex::kFew ? index().find(identifier)
                                                            : ElementIndex::findAmongFew(children_, identifier);
    return found ? std::static_pointer_cast<ADMXMLElementImp>(found->shared_from_this()) : nullptr;
}

std::size_t ADMXMLElementImp::identifiersCount() const
{
    return elementsCount_ > ElementIndex::kFew ? index().count() : ElementIndex::countAmongFew(children_);
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
    auto exact = known(identifierNamed(name, attributes));
    return exact ? exact : first(name, [&](const Dictionary& all) {
        return com_ql_dmf_containsObjectsFromDictionary(all, attributes);
    });
}

ADMXMLElementImp::Pointer ADMXMLElementImp::firstNamed(std::string_view name, std::string_view value,
                                                       std::string_view attribute) const
{
    auto exact = known(identifierNamed(name, value, attribute));
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
    const auto found = ElementPath::select(*this, expression);
    return {found.begin(), found.end()};
}

bool ADMXMLElementImp::isMatrix() const
{
    return !isLeaf() && identifiersCount() == elementsCount_;
}

bool ADMXMLElementImp::isArray() const
{
    return elementsCount_ > 1 && identifiersCount() == 1;
}

// As a whole.

std::string ADMXMLElementImp::stringRepresentation() const
{
    return ElementText::of(*this);
}

std::shared_ptr<ADMXMLNodeImp> ADMXMLElementImp::shallowCopy() const
{
    auto result = std::make_shared<ADMXMLElementImp>(std::nullopt);
    result->name_ = name_;
    result->attributes_ = attributes_;
    result->kind_ = kind_;
    result->content_ = content_;
    result->holdsText_ = holdsText_ && children_.empty();
    return result;
}

bool ADMXMLElementImp::isShallowCopyOf(const ADMXMLNodeImp& other) const
{
    const auto* const element = dynamic_cast<const ADMXMLElementImp*>(&other);
    return element && attributes_ == element->attributes_ && ADMXMLNodeImp::isShallowCopyOf(other);
}

std::string ADMXMLElementImp::description() const
{
    return dmf::formatted("<%@ 0x%x name = \"%@\", properties = \"%@\", contents = \"%@\">",
                          dmf::internal::typeName(typeid(*this)), reinterpret_cast<std::uintptr_t>(this), name_.text(),
                          attributes_, stringRepresentation());
}

// As a node of model information.

std::optional<std::string> ADMXMLElementImp::name() const
{
    return name_.text();
}

std::optional<dmf::Dictionary> ADMXMLElementImp::properties() const
{
    return attributes_;
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name) const
{
    return firstNamed(name);
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::optional<std::string_view> name, std::uint32_t index) const
{
    if (!name)
        return nullptr;
    const auto named = allNamed(*name);
    return index < named.size() ? named[index] : nullptr;
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name, const dmf::Dictionary& properties) const
{
    return firstNamed(name, properties);
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name, std::string_view propertyValue,
                                                     std::string_view property) const
{
    return firstNamed(name, propertyValue, property);
}

std::vector<std::shared_ptr<ADMInfo>> ADMXMLElementImp::infoForPath(std::string_view path) const
{
    const auto found = ElementPath::select(*this, path);
    return {found.begin(), found.end()};
}

std::vector<std::shared_ptr<ADMInfo>> ADMXMLElementImp::allInfos() const
{
    std::vector<std::shared_ptr<ADMInfo>> infos;
    infos.reserve(elementsCount_);
    for (const auto& child : children_) {
        if (child->asElement())
            infos.push_back(std::static_pointer_cast<ADMXMLElementImp>(child));
    }
    return infos;
}

std::uint32_t ADMXMLElementImp::count() const
{
    return elementsCount_;
}

dmf::Value ADMXMLElementImp::value() const
{
    return ElementValue::of(*this);
}

std::optional<std::string> ADMXMLElementImp::stringValue() const
{
    return isLeaf() ? value().string() : std::nullopt;
}

std::optional<dmf::Number> ADMXMLElementImp::numberValue() const
{
    if (!isLeaf())
        return std::nullopt;
    return double{dmf::internal::leadingNumber(stringValue().value_or(std::string()))};
}

std::optional<dmf::Date> ADMXMLElementImp::dateValue() const
{
    const auto text = stringValue();
    return text ? dmf::Date::fromString(*text) : std::nullopt;
}

std::optional<dmf::Data> ADMXMLElementImp::dataValue() const
{
    const auto text = stringValue();
    if (!text)
        return std::nullopt;
    const auto decoded = com_ql_dmf_dataDecodedWithBase64(*text);
    return decoded ? decoded : dmf::Data::fromText(*text);
}
