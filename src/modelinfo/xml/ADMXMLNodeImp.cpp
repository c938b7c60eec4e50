#include <dmf/ADMXMLNodeImp.h>

#include "modelinfo/tree/LazyFill.h"

#include <stdexcept>
#include <utility>

using dmf::internal::lazyFillLock;
using dmf::internal::NodeList;
using dmf::internal::SharedText;

ADMXMLNodeImp::ADMXMLNodeImp(std::optional<std::string> name) : name_(SharedText::of(name)) {}

std::shared_ptr<ADMXMLNodeImp> ADMXMLNodeImp::textNodeWithContent(std::string content)
{
    auto node = std::make_shared<ADMXMLNodeImp>(std::nullopt);
    node->kind_ = ADMXMLNodeKind::text;
    node->content_ = SharedText(content);
    return node;
}

ADMXMLNodeImp::~ADMXMLNodeImp() = default;

std::optional<std::string> ADMXMLNodeImp::name() const
{
    return name_.text();
}

ADMXMLNodeKind ADMXMLNodeImp::kind() const
{
    return kind_;
}

void ADMXMLNodeImp::setKind(ADMXMLNodeKind kind)
{
    kind_ = kind;
}

std::optional<std::string> ADMXMLNodeImp::content() const
{
    return content_.text();
}

void ADMXMLNodeImp::setContent(std::optional<std::string> content)
{
    content_ = SharedText::of(content);
}

dmf::Value ADMXMLNodeImp::userInfo() const
{
    std::lock_guard guard(lazyFillLock(this));
    return userInfo_ ? *userInfo_ : dmf::Value();
}

void ADMXMLNodeImp::setUserInfo(dmf::Value userInfo)
{
    auto kept = userInfo.isNull() ? nullptr : std::make_unique<dmf::Value>(std::move(userInfo));
    // What was there goes after the lock is free: its end may run the program's code.
    std::lock_guard guard(lazyFillLock(this));
    std::swap(userInfo_, kept);
}

dmf::Value ADMXMLNodeImp::keepValue(dmf::Value computed) const
{
    auto kept = std::make_unique<dmf::Value>(std::move(computed));
    std::lock_guard guard(lazyFillLock(this));
    if (!userInfo_)
        userInfo_ = std::move(kept);
    return *userInfo_;
}

std::vector<std::shared_ptr<ADMXMLNode>> ADMXMLNodeImp::children() const
{
    const NodeList& made = madeChildren();
    return {made.begin(), made.end()};
}

std::shared_ptr<ADMXMLNodeImp> ADMXMLNodeImp::ownKind(std::shared_ptr<ADMXMLNode> node)
{
    // Asked of the node itself: trees are built of thousands of nodes, and a dynamic cast takes longer than the rest.
    ADMXMLNodeImp* const own = node ? node->asOwnKind() : nullptr;
    if (node && !own)
        throw std::invalid_argument("an XML node of a foreign class");
    return {std::move(node), own};
}

void ADMXMLNodeImp::addChild(std::shared_ptr<ADMXMLNode> child)
{
    if (auto own = ownKind(std::move(child)))
        children_.append(std::move(own));
}

void ADMXMLNodeImp::removeChildAtIndex(std::size_t index)
{
    if (index < children_.size())
        children_.erase(index);
}

void ADMXMLNodeImp::removeChildren()
{
    children_.clear();
}

const NodeList& ADMXMLNodeImp::madeChildren() const
{
    return children_;
}

std::shared_ptr<ADMXMLNodeImp> ADMXMLNodeImp::shallowCopy() const
{
    auto result = std::make_shared<ADMXMLNodeImp>(std::nullopt);
    result->name_ = name_;
    result->kind_ = kind_;
    result->content_ = content_;
    return result;
}

std::shared_ptr<ADMXMLNode> ADMXMLNodeImp::copy() const
{
    auto result = shallowCopy();
    std::vector<std::pair<const ADMXMLNodeImp*, ADMXMLNodeImp*>> open{{this, result.get()}};
    while (!open.empty()) {
        const auto [original, image] = open.back();
        open.pop_back();
        for (const auto& child : original->children_) {
            auto copied = child->shallowCopy();
            if (!child->children_.empty())
                open.emplace_back(child.get(), copied.get());
            image->addChild(std::move(copied));
        }
        image->content_ = original->content_; // which adding a text changes
    }
    return result;
}

bool ADMXMLNodeImp::isShallowCopyOf(const ADMXMLNodeImp& other) const
{
    return kind_ == other.kind_ && name_ == other.name_ && content_ == other.content_;
}

bool ADMXMLNodeImp::isACopyOf(const ADMXMLNode& other) const
{
    const auto* const node = dynamic_cast<const ADMXMLNodeImp*>(&other);
    if (!node)
        return false;
    std::vector<std::pair<const ADMXMLNodeImp*, const ADMXMLNodeImp*>> open{{this, node}};
    while (!open.empty()) {
        const auto [left, right] = open.back();
        open.pop_back();
        const NodeList& leftChildren = left->madeChildren();
        const NodeList& rightChildren = right->madeChildren();
        if (!left->isShallowCopyOf(*right) || leftChildren.size() != rightChildren.size())
            return false;
        for (std::size_t i = 0; i < leftChildren.size(); ++i)
            open.emplace_back(leftChildren[i].get(), rightChildren[i].get());
    }
    return true;
}

bool ADMXMLNodeImp::isLeaf() const
{
    return children_.empty() || (children_.size() == 1 && children_[0]->kind_ == ADMXMLNodeKind::text);
}

ADMXMLNodeImp* ADMXMLNodeImp::asOwnKind() noexcept
{
    return this;
}

ADMXMLElementImp* ADMXMLNodeImp::asElement() noexcept
{
    return nullptr;
}
