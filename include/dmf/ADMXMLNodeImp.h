#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMXMLNode.h>
#include <dmf/ADMXMLNodeList.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

class ADMXMLElementImp;

namespace dmf::internal {
class ElementIndex;
class ElementPath;
class ElementText;
class ElementValue;
} // namespace dmf::internal

/// A node of an XML tree; text nodes are of this class. Trees of any depth can be built, copied, compared and let go.
class DMF_EXPORT ADMXMLNodeImp : public virtual ADMXMLNode, public std::enable_shared_from_this<ADMXMLNodeImp> {
public:
    explicit ADMXMLNodeImp(std::optional<std::string> name);
    /// An unnamed node of kind text.
    [[nodiscard]] static std::shared_ptr<ADMXMLNodeImp> textNodeWithContent(std::string content);
    ~ADMXMLNodeImp() override;
    ADMXMLNodeImp(const ADMXMLNodeImp&) = delete;
    ADMXMLNodeImp& operator=(const ADMXMLNodeImp&) = delete;

    [[nodiscard]] std::optional<std::string> name() const override;
    [[nodiscard]] ADMXMLNodeKind kind() const override;
    void setKind(ADMXMLNodeKind kind) override;
    [[nodiscard]] std::optional<std::string> content() const override;
    void setContent(std::optional<std::string> content) override;
    [[nodiscard]] dmf::Value userInfo() const override;
    void setUserInfo(dmf::Value userInfo) override;

    [[nodiscard]] std::vector<std::shared_ptr<ADMXMLNode>> children() const override;
    void addChild(std::shared_ptr<ADMXMLNode> child) override;
    void removeChildAtIndex(std::size_t index) override;
    void removeChildren() override;

    [[nodiscard]] std::shared_ptr<ADMXMLNode> copy() const override;
    [[nodiscard]] bool isACopyOf(const ADMXMLNode& other) const override;
    [[nodiscard]] bool isLeaf() const override;

protected:
    friend class ADMXMLElementImp;
    friend class ADMXMLTreeBuilder;
    friend class dmf::internal::ElementIndex;
    friend class dmf::internal::ElementPath;
    friend class dmf::internal::ElementText;
    friend class dmf::internal::ElementValue;

    [[nodiscard]] ADMXMLNodeImp* asOwnKind() noexcept override;
    /// This node as an element; null for every other node.
    [[nodiscard]] virtual ADMXMLElementImp* asElement() noexcept;
    /// `node` as what this library makes; throws std::invalid_argument for an object of another class.
    [[nodiscard]] static std::shared_ptr<ADMXMLNodeImp> ownKind(std::shared_ptr<ADMXMLNode> node);
    [[nodiscard]] bool hasName(std::string_view name) const noexcept { return name_ && name_.view() == name; }
    /// All children; those that are only known about are made.
    [[nodiscard]] virtual const dmf::internal::NodeList& madeChildren() const;
    /// A copy without children.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLNodeImp> shallowCopy() const;
    /// Whether both are the same but for their children.
    [[nodiscard]] virtual bool isShallowCopyOf(const ADMXMLNodeImp& other) const;
    /// Keeps `computed` as the user info unless there is one by now, and hands back what is kept.
    [[nodiscard]] dmf::Value keepValue(dmf::Value computed) const;

    dmf::internal::SharedText name_;
    dmf::internal::SharedText content_;
    mutable dmf::internal::NodeList children_;
    /// Null for none, as most nodes have. Guarded by the lazy-fill lock of this address, since reading fills it.
    mutable std::unique_ptr<dmf::Value> userInfo_;
    ADMXMLNodeKind kind_ = ADMXMLNodeKind::element;
};
