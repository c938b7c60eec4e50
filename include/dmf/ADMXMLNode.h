#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

class ADMXMLNodeImp;

enum class ADMXMLNodeKind : std::uint32_t { element = 0, text = 1 };

/// A node of an XML tree: an element or a run of text. Trees are built by one thread; once built, reading them is
/// thread-safe. A node belongs to its parent and to whoever else holds it; it does not know its parent.
class DMF_EXPORT ADMXMLNode {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMXMLNode();

    /// Nothing for an unnamed node, as text nodes are.
    [[nodiscard]] virtual std::optional<std::string> name() const = 0;
    [[nodiscard]] virtual ADMXMLNodeKind kind() const = 0;
    virtual void setKind(ADMXMLNodeKind kind) = 0;
    /// The text of a text node, or of an element that holds text (the last run, where there are several).
    [[nodiscard]] virtual std::optional<std::string> content() const = 0;
    virtual void setContent(std::optional<std::string> content) = 0;
    /// Anything that the program wants to keep with the node. Elements keep their computed value here, so what is set
    /// here becomes the element's value.
    [[nodiscard]] virtual dmf::Value userInfo() const = 0;
    virtual void setUserInfo(dmf::Value userInfo) = 0;

    /// In document order.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMXMLNode>> children() const = 0;
    /// Appends a node of this library's classes; a null one changes nothing. Throws std::invalid_argument for an object
    /// of another class. A node must not be put below itself.
    virtual void addChild(std::shared_ptr<ADMXMLNode> child) = 0;
    /// An index past the end changes nothing.
    virtual void removeChildAtIndex(std::size_t index) = 0;
    virtual void removeChildren() = 0;

    /// A copy of the node and everything below it; the user info is not copied.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLNode> copy() const = 0;
    /// Whether both trees have the same kinds, names, contents, attributes and order.
    [[nodiscard]] virtual bool isACopyOf(const ADMXMLNode& other) const = 0;
    /// No children, or a single text node.
    [[nodiscard]] virtual bool isLeaf() const = 0;

protected:
    friend class ADMXMLNodeImp;
    /// This node as one of the library's own; null for every other class.
    [[nodiscard]] virtual ADMXMLNodeImp* asOwnKind() noexcept;
};

/// An element of an XML tree. Look-ups answer an empty pointer, or an empty list, for "none".
///
/// Among its siblings an element is known by its identifier: its name, followed by the name and the value of each of
/// its attributes without separators, the attributes in the order of their names regardless of letter case.
class DMF_EXPORT ADMXMLElement : public virtual ADMXMLNode {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    ~ADMXMLElement() override;

    /// Appends a node. An element is found by its identifier from then on, in place of an earlier one with the same;
    /// a text node's content becomes this element's content. As for addChild otherwise.
    virtual void addElement(std::shared_ptr<ADMXMLNode> node) = 0;
    virtual void removeAllElements() = 0;

    /// Attribute names to values.
    [[nodiscard]] virtual dmf::Dictionary attributes() const = 0;
    /// To be set before the element is added to another: its identifier is computed once.
    virtual void setAttributes(dmf::Dictionary attributes) = 0;
    /// Prefixes to namespace URIs as this element declares them; the default namespace has the prefix "".
    [[nodiscard]] virtual dmf::Dictionary namespaces() const = 0;

    /// The first child element of that name.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLElement> elementNamed(std::string_view name) const = 0;
    /// The child with exactly those attributes, the last of several, failing that the first one of that name that has
    /// all of them.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLElement> elementNamed(std::string_view name,
                                                                      const dmf::Dictionary& attributes) const = 0;
    /// The child with exactly that attribute, the last of several, failing that the first one of that name that has it.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLElement>
    elementNamed(std::string_view name, std::string_view attributeValue, std::string_view attribute) const = 0;
    /// All child elements of that name, in order.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMXMLElement>> elementsNamed(std::string_view name) const = 0;
    /// The elements that the XPath expression selects, in document order, this element being the context node and the
    /// root of the document. Empty for an expression that is malformed or selects something else.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMXMLElement>>
    elementsForXPath(std::string_view expression) const = 0;

    /// Computed by the first call and kept.
    [[nodiscard]] virtual std::string elementIdentifier() const = 0;
    /// A record: not a leaf, and every child element differs from its siblings in name or attributes.
    [[nodiscard]] virtual bool isMatrix() const = 0;
    /// A list: more than one child element, all with the same identifier.
    [[nodiscard]] virtual bool isArray() const = 0;

    /// The element as XML text, without line breaks of its own.
    [[nodiscard]] virtual std::string stringRepresentation() const = 0;
};
