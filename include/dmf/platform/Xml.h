#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Data.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// Limits on what is read, since documents come from devices and files that nobody vouches for.
inline constexpr std::size_t kXmlMaximumSize = 16 << 20;  ///< bytes
inline constexpr std::size_t kXmlMaximumTags = 1 << 20;   ///< tags, comments and the like ("<" characters)
inline constexpr std::size_t kXmlMaximumDepth = 512;      ///< elements within each other
inline constexpr std::size_t kXmlMaximumAttributes = 512; ///< of one element

/// Errors of XML documents: the code is an XmlErrorCode, the user info holds a text for people under
/// "DMErrorDescription".
inline constexpr std::string_view kXmlErrorDomain = "com.ql.dmf.XML.ErrorDomain";
enum class XmlErrorCode : int { malformed = 1, encoding = 2, tooLarge = 3, tooDeep = 4, entity = 5, expression = 6 };

/// Options for reading a document, to be combined with "|".
inline constexpr unsigned kXmlNoOptions = 0;
inline constexpr unsigned kXmlTidy = 1024;               ///< repair what is malformed, as far as that goes
inline constexpr unsigned kXmlPreserveWhitespace = 2048; ///< keep white space between pieces of markup as text nodes

class XmlDocument;
class XmlElement;

/// A handle of one node in a document: an element, a run of text or a comment. Cheap to copy; keeps the document alive.
/// Taking a node out of its document ends the handles of it and of what is below it: they must not be used again.
/// An empty handle answers empty results. Reentrant; a document and all its handles are one object in this respect.
class DMF_EXPORT XmlNode {
public:
    enum class Kind : std::uint8_t { none, element, text, comment };

    XmlNode() noexcept = default;
    [[nodiscard]] explicit operator bool() const noexcept { return node_ != nullptr; }
    [[nodiscard]] Kind kind() const noexcept;
    /// The same for two handles of one node, different for different nodes of a document.
    [[nodiscard]] const void* identity() const noexcept { return node_; }
    friend bool operator==(const XmlNode& left, const XmlNode& right) noexcept { return left.node_ == right.node_; }

    /// The text; of an element, all text below it in document order, comments left out.
    [[nodiscard]] std::string stringValue() const;
    /// Sets the text; an element has no other children afterwards. False, and no change, for text that XML cannot
    /// carry: control characters, bytes that are not UTF-8, in a comment also "--".
    bool setStringValue(std::string_view text) const;

    /// This node as an element; empty for another kind.
    [[nodiscard]] XmlElement element() const;
    /// The element that holds this node; empty for the root.
    [[nodiscard]] XmlElement parent() const;
    /// Takes the node out of the document and ends its handles. False for the root element, which stays.
    bool remove() const;
    /// The node as XML text, without line breaks of its own.
    [[nodiscard]] std::string xmlString() const;

protected:
    friend class XmlDocument;
    friend class XmlElement;
    struct Access;
    friend struct Access;
    struct State;
    XmlNode(std::shared_ptr<State> state, void* node) noexcept : state_(std::move(state)), node_(node) {}

    std::shared_ptr<State> state_;
    void* node_ = nullptr;
};

/// A handle of an element. Names are qualified names as they stand ("s:Envelope") unless told otherwise.
class DMF_EXPORT XmlElement : public XmlNode {
public:
    XmlElement() noexcept = default;

    [[nodiscard]] std::string name() const;
    /// The name without its namespace prefix.
    [[nodiscard]] std::string localName() const;
    [[nodiscard]] std::string prefix() const;
    /// The namespace that the element is in; empty for none.
    [[nodiscard]] std::string URI() const;
    /// The namespace that the prefix ("" for the default one) stands for here; nothing for an undeclared prefix.
    [[nodiscard]] std::optional<std::string> namespaceForPrefix(std::string_view prefix) const;

    /// Elements, texts and comments in document order.
    [[nodiscard]] std::vector<XmlNode> children() const;
    [[nodiscard]] std::vector<XmlElement> elements() const;
    [[nodiscard]] std::vector<XmlElement> elementsForName(std::string_view name) const;
    /// Child elements by local name and namespace; an empty URI stands for no namespace.
    [[nodiscard]] std::vector<XmlElement> elementsForLocalName(std::string_view localName, std::string_view URI) const;

    [[nodiscard]] std::optional<std::string> attribute(std::string_view name) const;
    /// All attributes by name, declarations of namespaces included.
    [[nodiscard]] Dictionary attributes() const;
    /// False, and no change, for a name or a value that XML cannot carry.
    bool setAttribute(std::string_view name, std::string_view value) const;
    void removeAttribute(std::string_view name) const;

    /// Appends a child and hands it back; empty, and no change, for what XML cannot carry or beyond the maximum depth.
    XmlElement appendElement(std::string_view name) const;
    XmlNode appendText(std::string_view text) const;
    XmlNode appendComment(std::string_view text) const;

    /// The elements, texts and comments that the XPath 1.0 expression selects, in document order, this element being
    /// the context node. Names in it are matched as written. Empty, with an error in `error` when it is not null, for
    /// a malformed expression or one that gives something else than nodes.
    [[nodiscard]] std::vector<XmlNode> nodesForXPath(std::string_view expression, Error* error = nullptr) const;

private:
    friend class XmlDocument;
    friend class XmlNode;
    friend struct XmlNode::Access;
    using XmlNode::XmlNode;
};

/// An XML document, read or made. Reentrant.
class DMF_EXPORT XmlDocument {
public:
    /// Reads a document in UTF-8. Empty, with an error in `error` when it is not null, unless it is well-formed: one
    /// root element, no attribute twice, no entities but the five predefined ones and character references, every
    /// namespace prefix declared, every namespace a URI. A document type is skipped when it declares nothing itself and
    /// refused otherwise. No other file is ever read. Processing instructions are left out.
    ///
    /// With kXmlTidy what is malformed is repaired: elements left open or closed in the wrong order are closed, stray
    /// "<", "&" and unknown entities become text, attributes get their quotes, bytes that XML cannot carry are
    /// replaced, document types and text outside the root are dropped. The limits hold all the same.
    [[nodiscard]] static std::shared_ptr<XmlDocument> parse(std::string_view text, unsigned options = kXmlNoOptions,
                                                            Error* error = nullptr);
    [[nodiscard]] static std::shared_ptr<XmlDocument> parse(std::span<const std::uint8_t> bytes,
                                                            unsigned options = kXmlNoOptions, Error* error = nullptr);
    /// A new document with an empty root element of that name; empty for a name that XML cannot carry.
    [[nodiscard]] static std::shared_ptr<XmlDocument> withRootElement(std::string_view name);

    [[nodiscard]] XmlElement rootElement() const;
    /// The document as XML text in UTF-8 with its declaration, without line breaks between elements.
    [[nodiscard]] std::string xmlString() const;
    [[nodiscard]] Data xmlData() const;

    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument();

private:
    explicit XmlDocument(std::shared_ptr<XmlNode::State> state);
    std::shared_ptr<XmlNode::State> state_;
};

} // namespace dmf
