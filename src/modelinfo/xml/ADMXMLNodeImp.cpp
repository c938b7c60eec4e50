#include <dmf/ADMXMLNodeImp.h>

#include "modelinfo/tree/LazyFill.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

using dmf::internal::lazyFillLock;

ADMXMLNodeImp::ADMXMLNodeImp(std::optional<std::string> name) : name_(std::move(name)) {}

std::shared_ptr<ADMXMLNodeImp> ADMXMLNodeImp::textNodeWithContent(std::string content)
{
    auto node = std::make_shared<ADMXMLNodeImp>(std::nullopt);
    node->kind_ = ADMXMLNodeKind::text;
    node->content_ = std::move(content);
    return node;
}

ADMXMLNodeImp::~ADMXMLNodeImp()
{
    // One level after the other: a tree that a program built can be deeper than the stack.
    Children dying;
    takeApart(children_, dying);
    while (!dying.empty()) {
        const auto node = std::move(dying.back());
        dying.pop_back();
        // Only now: whoever has got hold of it meanwhile has it whole, and who shared it may have let go.
        if (node.use_count() == 1)
            takeApart(node->children_, dying);
    }
}

void ADMXMLNodeImp::takeApart(Children& children, Children& parents)
{
    for (auto& child : children) {
        if (child.use_count() > 1 || !child->children_.empty())
            parents.push_back(std::move(child));
    }
    children.clear();
}

std::optional<std::string> ADMXMLNodeImp::name() const
{
    return name_;
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
    return content_;
}

void ADMXMLNodeImp::setContent(std::optional<std::string> content)
{
    content_ = std::move(content);
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
    return {children_.begin(), children_.end()};
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
        children_.push_back(std::move(own));
}

void ADMXMLNodeImp::removeChildAtIndex(std::size_t index)
{
    if (index < children_.size())
        children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(index));
}

void ADMXMLNodeImp::removeChildren()
{
    children_.clear();
}

std::shared_ptr<ADMXMLNode> ADMXMLNodeImp::copy() const
{
    auto result = std::make_shared<ADMXMLNodeImp>(name_);
    result->kind_ = kind_;
    result->content_ = content_;
    for (const auto& child : children_)
        result->addChild(child->copy());
    return result;
}

bool ADMXMLNodeImp::isACopyOf(const ADMXMLNode& other) const
{
    const auto* node = dynamic_cast<const ADMXMLNodeImp*>(&other);
    return node && kind_ == node->kind_ && name_ == node->name_ && content_ == node->content_ &&
           std::ranges::equal(children_, node->children_,
                              [](const auto& left, const auto& right) { return left->isACopyOf(*right); });
}

bool ADMXMLNodeImp::isLeaf() const
{
    return children_.empty() || (children_.size() == 1 && children_.front()->kind_ == ADMXMLNodeKind::text);
}

ADMXMLNodeImp* ADMXMLNodeImp::asOwnKind() noexcept
{
    return this;
}

ADMXMLElementImp* ADMXMLNodeImp::asElement() noexcept
{
    return nullptr;
}
