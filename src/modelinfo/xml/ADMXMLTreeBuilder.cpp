#include <dmf/ADMXMLTreeBuilder.h>

#include "modelinfo/xml/NodePool.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

using dmf::internal::NodeAllocator;
using dmf::internal::NodePool;

ADMXMLTreeBuilder::ADMXMLTreeBuilder() : pool_(std::make_unique<NodePool>()) {}

ADMXMLTreeBuilder::~ADMXMLTreeBuilder() = default;

void ADMXMLTreeBuilder::beginElement(std::string_view name, std::span<const Attribute> attributes)
{
    using Element = ADMXMLElementImp;
    auto element = std::allocate_shared<Element>(NodeAllocator<Element>(*pool_), std::string(name));
    if (!attributes.empty()) {
        dmf::Dictionary all;
        all.reserve(attributes.size());
        for (const auto& [attribute, value] : attributes)
            all.set(attribute, value);
        element->setAttributes(std::move(all));
    }
    open_.push_back(std::move(element));
}

void ADMXMLTreeBuilder::text(std::string_view text)
{
    wantOpen();
    using Node = ADMXMLNodeImp;
    auto node = std::allocate_shared<Node>(NodeAllocator<Node>(*pool_), std::nullopt);
    node->setKind(ADMXMLNodeKind::text);
    node->setContent(std::string(text));
    open_.back()->addElement(std::move(node));
}

void ADMXMLTreeBuilder::endElement()
{
    wantOpen();
    auto finished = std::move(open_.back());
    open_.pop_back();
    if (open_.empty())
        root_ = std::move(finished);
    else
        open_.back()->addElement(std::move(finished));
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
