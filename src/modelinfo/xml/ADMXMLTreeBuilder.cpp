#include <dmf/ADMXMLTreeBuilder.h>

#include "modelinfo/xml/NodePool.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

using dmf::internal::makeIn;
using dmf::internal::NodePool;
using dmf::internal::SharedText;

ADMXMLTreeBuilder::ADMXMLTreeBuilder() : pool_(std::make_unique<NodePool>()) {}

ADMXMLTreeBuilder::~ADMXMLTreeBuilder() = default;

const SharedText& ADMXMLTreeBuilder::sharedName(std::string_view name)
{
    const auto known = names_.find(name);
    if (known != names_.end())
        return known->second;
    SharedText text(name);
    const auto key = text.view();
    return names_.emplace(key, std::move(text)).first->second;
}

dmf::Dictionary ADMXMLTreeBuilder::dictionaryOf(std::span<const Attribute> attributes)
{
    if (attributes.size() == 1)
        return sharedAttribute(attributes.front());
    // In the order in which a dictionary keeps them each goes to the end of it.
    if (!std::ranges::is_sorted(attributes, {}, &Attribute::name)) {
        sorted_.assign(attributes.begin(), attributes.end());
        std::ranges::stable_sort(sorted_, {}, &Attribute::name);
        attributes = sorted_;
    }
    dmf::Dictionary all;
    all.reserve(attributes.size());
    for (const auto& [attribute, value] : attributes)
        all.set(attribute, value);
    return all;
}

/// Models say the same of many things, so that those with the same attribute share it, as far as this one remembers.
const dmf::Dictionary& ADMXMLTreeBuilder::sharedAttribute(const Attribute& attribute)
{
    const auto hash = std::hash<std::string_view>()(attribute.value) ^ attribute.name.size();
    auto& seen = seen_[hash % seen_.size()];
    const auto* const value = seen.find(attribute.name);
    const auto* const text = value ? value->asString() : nullptr;
    if (!text || *text != attribute.value) {
        seen = {};
        seen.reserve(1);
        seen.set(attribute.name, attribute.value);
    }
    return seen;
}

void ADMXMLTreeBuilder::beginElement(std::string_view name, std::span<const Attribute> attributes)
{
    makeHeldText();
    auto element = makeIn<ADMXMLElementImp>(*pool_);
    element->name_ = sharedName(name);
    if (!attributes.empty())
        element->attributes_ = dictionaryOf(attributes);
    open_.push_back({std::move(element), waiting_.size()});
}

void ADMXMLTreeBuilder::text(std::string_view text)
{
    wantOpen();
    makeHeldText();
    auto& [element, children] = open_.back();
    if (children == waiting_.size())
        return element->holdText(text); // most elements with a text have nothing else
    auto node = makeIn<ADMXMLNodeImp>(*pool_);
    node->kind_ = ADMXMLNodeKind::text;
    node->content_ = SharedText(text);
    waiting_.push_back(std::move(node));
}

/// The text that the innermost element holds becomes a child, since others follow.
void ADMXMLTreeBuilder::makeHeldText()
{
    if (open_.empty() || !open_.back().element->holdsText_)
        return;
    ADMXMLElementImp& element = *open_.back().element;
    auto node = makeIn<ADMXMLNodeImp>(*pool_);
    node->kind_ = ADMXMLNodeKind::text;
    node->content_ = element.content_;
    waiting_.push_back(std::move(node));
    element.holdsText_ = false;
}

void ADMXMLTreeBuilder::endElement()
{
    wantOpen();
    auto [finished, children] = std::move(open_.back());
    open_.pop_back();
    finished->adopt(std::span(waiting_).subspan(children));
    waiting_.resize(children);
    if (open_.empty())
        root_ = std::move(finished);
    else
        waiting_.push_back(std::move(finished));
}

void ADMXMLTreeBuilder::wantOpen() const
{
    if (open_.empty())
        throw std::logic_error("no XML element has begun");
}

std::shared_ptr<ADMXMLElementImp> ADMXMLTreeBuilder::takeRoot() noexcept
{
    return std::move(root_);
}
