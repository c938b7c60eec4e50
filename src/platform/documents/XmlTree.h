#pragma once

#include <dmf/platform/Xml.h>
#include <dmf/platform/XmlReader.h>

#include <pugixml.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace dmf {

/// A document's tree, and the text that its names and values still lie in.
struct XmlNode::State {
    std::string buffer;
    pugi::xml_document document;
};

/// Between handles and the tree.
struct XmlNode::Access {
    using Tree = pugi::xml_node;

    static Tree tree(const XmlNode& handle) { return Tree(static_cast<pugi::xml_node_struct*>(handle.node_)); }
    static XmlNode node(const XmlNode& sibling, const Tree& tree)
    {
        return tree ? XmlNode(sibling.state_, tree.internal_object()) : XmlNode();
    }
    static XmlElement element(const std::shared_ptr<State>& state, const Tree& tree)
    {
        return tree ? XmlElement(state, tree.internal_object()) : XmlElement();
    }
    static XmlElement element(const XmlNode& sibling, const Tree& tree) { return element(sibling.state_, tree); }
};

namespace internal::xml {

struct Fault {
    XmlErrorCode code{};
    std::string reason;
};
[[nodiscard]] Error errorOf(const Fault& fault);

/// Copies `text` into `buffer` and reads it into `document`: what lies there is as it was written. `options` are those
/// of the tokenizer that are not always in force.
[[nodiscard]] std::optional<Fault> tokenize(std::string_view text, unsigned options, std::string& buffer,
                                            pugi::xml_document& document);

/// Checks what the tokenizer let pass and resolves the references in all texts, which are still as they were read.
/// Afterwards the tree holds the root element and comments only. `text` is what was read, for line numbers.
[[nodiscard]] std::optional<Fault> checkTree(pugi::xml_document& document, std::string_view text,
                                             std::string_view buffer);
/// The same for a tree that is not kept: its parts go to the receiver in their order, up to the first fault.
[[nodiscard]] std::optional<Fault> handOver(pugi::xml_document& document, std::string_view text,
                                            std::string_view buffer, XmlReceiver& receiver);

[[nodiscard]] bool isText(const pugi::xml_node& node);
/// The node after `node` in document order below `top`; empty after the last one.
[[nodiscard]] pugi::xml_node following(pugi::xml_node node, const pugi::xml_node& top);
void appendXml(std::string& xml, const pugi::xml_node& node);

} // namespace internal::xml
} // namespace dmf
