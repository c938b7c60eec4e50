#include <dmf/platform/Xml.h>

#include "platform/documents/XmlText.h"
#include "platform/documents/XmlTree.h"

#include <utility>

namespace dmf {
namespace {

using namespace internal;

bool isCommentText(std::string_view text)
{
    return xml::isCharacterData(text) && text.find("--") == text.npos && !text.ends_with('-');
}

void appendStartTag(std::string& xml, const pugi::xml_node& element)
{
    xml.append("<").append(element.name());
    for (const auto& attribute : element.attributes()) {
        xml.append(" ").append(attribute.name()).append("=\"");
        xml::appendEscaped(xml, attribute.value(), true);
        xml += '"';
    }
    xml += element.first_child() ? ">" : "/>";
}

void setElementText(pugi::xml_node element, const std::string& text)
{
    auto child = element.first_child();
    if (child.type() == pugi::node_pcdata && !child.next_sibling() && !text.empty()) {
        child.set_value(text.c_str()); // handles of the text stay good
        return;
    }
    element.remove_children();
    if (!text.empty())
        element.append_child(pugi::node_pcdata).set_value(text.c_str());
}

} // namespace

namespace internal::xml {

bool isText(const pugi::xml_node& node)
{
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

pugi::xml_node following(pugi::xml_node node, const pugi::xml_node& top)
{
    if (node.first_child())
        return node.first_child();
    while (node != top && !node.next_sibling())
        node = node.parent();
    return node == top ? pugi::xml_node() : node.next_sibling();
}

void appendXml(std::string& xml, const pugi::xml_node& top)
{
    for (pugi::xml_node node = top; node;) {
        if (node.type() == pugi::node_element)
            appendStartTag(xml, node);
        else if (node.type() == pugi::node_comment)
            xml.append("<!--").append(node.value()).append("-->");
        else
            appendEscaped(xml, node.value());
        if (node.first_child()) {
            node = node.first_child();
            continue;
        }
        while (node != top && !node.next_sibling()) {
            node = node.parent();
            xml.append("</").append(node.name()).append(">");
        }
        node = node == top ? pugi::xml_node() : node.next_sibling();
    }
}

} // namespace internal::xml

XmlNode::Kind XmlNode::kind() const noexcept
{
    switch (Access::tree(*this).type()) {
    case pugi::node_element: return Kind::element;
    case pugi::node_pcdata:
    case pugi::node_cdata: return Kind::text;
    case pugi::node_comment: return Kind::comment;
    default: return Kind::none;
    }
}

std::string XmlNode::stringValue() const
{
    const auto top = Access::tree(*this);
    if (top.type() != pugi::node_element)
        return top.value();
    std::string text;
    for (auto node = xml::following(top, top); node; node = xml::following(node, top)) {
        if (xml::isText(node))
            text += node.value();
    }
    return text;
}

bool XmlNode::setStringValue(std::string_view text) const
{
    const auto kind = this->kind();
    if (kind == Kind::none || !(kind == Kind::comment ? isCommentText(text) : xml::isCharacterData(text)))
        return false;
    auto tree = Access::tree(*this);
    if (kind == Kind::element)
        setElementText(tree, std::string(text));
    else
        tree.set_value(std::string(text).c_str());
    return true;
}

XmlElement XmlNode::element() const
{
    return kind() == Kind::element ? Access::element(*this, Access::tree(*this)) : XmlElement();
}

XmlElement XmlNode::parent() const
{
    const auto parent = Access::tree(*this).parent();
    return parent.type() == pugi::node_element ? Access::element(*this, parent) : XmlElement();
}

bool XmlNode::remove() const
{
    auto tree = Access::tree(*this);
    // Comments may stand beside the root.
    const bool isRoot = tree.type() == pugi::node_element && tree.parent().type() == pugi::node_document;
    return !isRoot && tree.parent().remove_child(tree);
}

std::string XmlNode::xmlString() const
{
    std::string text;
    if (*this)
        xml::appendXml(text, Access::tree(*this));
    return text;
}

} // namespace dmf
