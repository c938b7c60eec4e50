#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMInfo.h>
#include <dmf/ADMXMLNode.h>
#include <dmf/ADMXMLNodeImp.h>
#include <dmf/ADMXMLNodeList.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// An element of an XML tree, which is also a node of model information: its properties are its attributes, its child
/// nodes are its child elements, and a path into it is an XPath expression.
class DMF_EXPORT ADMXMLElementImp : public ADMXMLNodeImp, public ADMXMLElement, public ADMInfo {
public:
    explicit ADMXMLElementImp(std::optional<std::string> name);
    ~ADMXMLElementImp() override;

    [[nodiscard]] static std::string identifierNamed(std::string_view name, const dmf::Dictionary& attributes);
    [[nodiscard]] static std::string identifierNamed(std::string_view name, std::string_view attributeValue,
                                                     std::string_view attribute);

    void setContent(std::optional<std::string> content) override;
    void addElement(std::shared_ptr<ADMXMLNode> node) override;
    /// The same as addElement.
    void addChild(std::shared_ptr<ADMXMLNode> child) override;
    void removeAllElements() override;
    void removeChildAtIndex(std::size_t index) override;
    void removeChildren() override;

    [[nodiscard]] dmf::Dictionary attributes() const override;
    void setAttributes(dmf::Dictionary attributes) override;
    [[nodiscard]] dmf::Dictionary namespaces() const override;

    [[nodiscard]] std::shared_ptr<ADMXMLElement> elementNamed(std::string_view name) const override;
    [[nodiscard]] std::shared_ptr<ADMXMLElement> elementNamed(std::string_view name,
                                                              const dmf::Dictionary& attributes) const override;
    [[nodiscard]] std::shared_ptr<ADMXMLElement> elementNamed(std::string_view name, std::string_view attributeValue,
                                                              std::string_view attribute) const override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMXMLElement>> elementsNamed(std::string_view name) const override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMXMLElement>>
    elementsForXPath(std::string_view expression) const override;

    [[nodiscard]] std::string elementIdentifier() const override;
    [[nodiscard]] bool isMatrix() const override;
    [[nodiscard]] bool isArray() const override;
    [[nodiscard]] std::string stringRepresentation() const override;

    [[nodiscard]] std::string description() const;

    /// Of a leaf its text; of a list an array of the children's values; of a record a dictionary from the children's
    /// identifiers to their values, "" for those that have none; otherwise null. Computed once and kept. Null, with a
    /// line in the log, where more than dmf::kXmlMaximumDepth values would be within each other.
    [[nodiscard]] dmf::Value value() const override;
    /// Of a leaf, its value.
    [[nodiscard]] std::optional<std::string> stringValue() const override;
    /// Of a leaf, the leading number of its value in single precision, 0 when there is none.
    [[nodiscard]] std::optional<dmf::Number> numberValue() const override;
    /// Of a leaf, the date that its value spells.
    [[nodiscard]] std::optional<dmf::Date> dateValue() const override;
    /// Of a leaf, its value read as base64, or else the bytes of its text.
    [[nodiscard]] std::optional<dmf::Data> dataValue() const override;

    [[nodiscard]] std::optional<std::string> name() const override;
    [[nodiscard]] std::optional<dmf::Dictionary> properties() const override;
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name) const override;
    /// The child element at that index among those of that name; empty past the last.
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::optional<std::string_view> name,
                                                     std::uint32_t index) const override;
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name,
                                                     const dmf::Dictionary& properties) const override;
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name, std::string_view propertyValue,
                                                     std::string_view property) const override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> infoForPath(std::string_view path) const override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> allInfos() const override;
    [[nodiscard]] std::uint32_t count() const override;

protected:
    [[nodiscard]] ADMXMLElementImp* asElement() noexcept override;
    [[nodiscard]] const dmf::internal::NodeList& madeChildren() const override;
    [[nodiscard]] std::shared_ptr<ADMXMLNodeImp> shallowCopy() const override;
    [[nodiscard]] bool isShallowCopyOf(const ADMXMLNodeImp& other) const override;

private:
    friend class ADMXMLTreeBuilder;
    friend class dmf::internal::ElementIndex;
    friend class dmf::internal::ElementPath;
    friend class dmf::internal::ElementText;
    friend class dmf::internal::ElementValue;
    using Pointer = std::shared_ptr<ADMXMLElementImp>;

    [[nodiscard]] Pointer firstNamed(std::string_view name) const;
    [[nodiscard]] Pointer firstNamed(std::string_view name, const dmf::Dictionary& attributes) const;
    [[nodiscard]] Pointer firstNamed(std::string_view name, std::string_view value, std::string_view attribute) const;
    template <class Accept>
    [[nodiscard]] Pointer first(std::string_view name, Accept accept) const;
    [[nodiscard]] std::vector<Pointer> allNamed(std::string_view name) const;
    [[nodiscard]] Pointer known(std::string_view identifier) const;
    [[nodiscard]] std::size_t identifiersCount() const;
    [[nodiscard]] const dmf::internal::ElementIndex& index() const;
    void forgetIndex() noexcept;
    void markIdentified() const noexcept;
    void makeTextNode();
    void holdText(std::string_view text);
    void adopt(std::span<std::shared_ptr<ADMXMLNodeImp>> nodes);

    dmf::Dictionary attributes_;
    mutable std::atomic<dmf::internal::ElementIndex*> index_{nullptr}; // owned; made on demand, then kept up to date
    /// By what it goes among its siblings when its attributes have changed since it was added or asked for.
    std::unique_ptr<const std::string> identifier_;
    std::uint32_t elementsCount_ = 0;
    /// How many values are within each other in the one that is kept.
    mutable std::atomic<std::uint16_t> valueHeight_{0};
    mutable std::atomic<bool> isIdentified_{false}; // others know it by its identifier
    /// The content is that of a text node, the only child, which is made when somebody asks for it.
    bool holdsText_ = false;
};
