#include <dmf/platform/Xml.h>

#include "platform/documents/XmlText.h"
#include "platform/documents/XmlTree.h"

#include <utility>

namespace dmf {
namespace {

using namespace internal;

std::pair<std::string_view, std::string_view> prefixAndLocalName(std::string_view name)
{
    const auto colon = name.find(':');
    return colon == name.npos ? std::pair(std::string_view(), name)
                              : std::pair(name.substr(0, colon), name.substr(colon + 1));
}

/// The namespace that `prefix` stands for at `node`: the innermost declaration counts.
std::optional<std::string_view> namespaceAt(pugi::xml_node node, std::string_view prefix)
{
    if (prefix == "xml")
        return "http://www.w3.org/XML/1998/namespace";
    const std::string attribute = prefix.empty() ? "xmlns" : "xmlns:" + std::string(prefix);
    for (; node.type() == pugi::node_element; node = node.parent()) {
        if (const auto declaration = node.attribute(attribute.c_str()))
            return *declaration.value() ? std::optional<std::string_view>(declaration.value()) : std::nullopt;
    }
    return std::nullopt;
}

std::size_t depthOf(pugi::xml_node node)
{
    std::size_t depth = 0;
    for (; node.type() == pugi::node_element; node = node.parent())
        ++depth;
    return depth;
}

bool isKept(const pugi::xml_node& node)
{
    return node.type() == pugi::node_element || node.type() == pugi::node_comment || xml::isText(node);
}

} // namespace

std::string XmlElement::name() const
{
    return Access::tree(*this).name();
}

std::string XmlElement::localName() const
{
    return std::string(prefixAndLocalName(Access::tree(*this).name()).second);
}

std::string XmlElement::prefix() const
{
    return std::string(prefixAndLocalName(Access::tree(*this).name()).first);
}

std::string XmlElement::URI() const
{
    return namespaceForPrefix(prefix()).value_or(std::string());
}

std::optional<std::string> XmlElement::namespaceForPrefix(std::string_view prefix) const
{
    const auto found = namespaceAt(Access::tree(*this), prefix);
    return found ? std::optional<std::string>(*found) : std::nullopt;
}

std::vector<XmlNode> XmlElement::children() const
{
    std::vector<XmlNode> result;
    for (const auto& child : Access::tree(*this)) {
        if (isKept(child))
            result.push_back(Access::node(*this, child));
    }
    return result;
}

std::vector<XmlElement> XmlElement::elements() const
{
    std::vector<XmlElement> result;
    for (const auto& child : Access::tree(*this)) {
        if (child.type() == pugi::node_element)
            result.push_back(Access::element(*this, child));
    }
    return result;
}

std::vector<XmlElement> XmlElement::elementsForName(std::string_view name) const
{
    std::vector<XmlElement> result;
    for (const auto& child : Access::tree(*this)) {
        if (child.type() == pugi::node_element && name == child.name())
            result.push_back(Access::element(*this, child));
    }
    return result;
}

std::vector<XmlElement> XmlElement::elementsForLocalName(std::string_view localName, std::string_view URI) const
{
    std::vector<XmlElement> result;
    for (const auto& child : Access::tree(*this)) {
        const auto [prefix, local] = prefixAndLocalName(child.name());
        if (child.type() == pugi::node_element && local == localName && namespaceAt(child, prefix).value_or("") == URI)
            result.push_back(Access::element(*this, child));
    }
    return result;
}

std::optional<std::string> XmlElement::attribute(std::string_view name) const
{
    const auto found = Access::tree(*this).attribute(std::string(name).c_str());
    return found ? std::optional<std::string>(found.value()) : std::nullopt;
}

Dictionary XmlElement::attributes() const
{
    std::vector<Dictionary::Entry> entries;
    for (const auto& attribute : Access::tree(*this).attributes())
        entries.push_back({attribute.name(), attribute.value()});
    return Dictionary(std::move(entries));
}

bool XmlElement::setAttribute(std::string_view name, std::string_view value) const
{
    if (!*this || !xml::isName(name) || !xml::isCharacterData(value))
        return false;
    auto tree = Access::tree(*this);
    const std::string key(name);
    auto attribute = tree.attribute(key.c_str());
    if (!attribute)
        attribute = tree.append_attribute(key.c_str());
    return attribute.set_value(std::string(value).c_str());
}

void XmlElement::removeAttribute(std::string_view name) const
{
    Access::tree(*this).remove_attribute(std::string(name).c_str());
}

XmlElement XmlElement::appendElement(std::string_view name) const
{
    auto tree = Access::tree(*this);
    if (!tree || !xml::isName(name) || depthOf(tree) >= kXmlMaximumDepth)
        return {};
    return Access::element(*this, tree.append_child(std::string(name).c_str()));
}

XmlNode XmlElement::appendText(std::string_view text) const
{
    if (!xml::isCharacterData(text))
        return {};
    auto child = Access::tree(*this).append_child(pugi::node_pcdata);
    child.set_value(std::string(text).c_str());
    return Access::node(*this, child);
}

XmlNode XmlElement::appendComment(std::string_view text) const
{
    auto tree = Access::tree(*this).append_child(pugi::node_comment);
    const auto child = Access::node(*this, tree);
    if (child.setStringValue(text))
        return child;
    child.remove();
    return {};
}

std::vector<XmlNode> XmlElement::nodesForXPath(std::string_view expression, Error* error) const
{
    if (error)
        *error = Error();
    const auto refuse = [&](std::string reason) {
        if (error)
            *error = xml::errorOf({XmlErrorCode::expression, std::move(reason)});
        return std::vector<XmlNode>();
    };
    std::vector<XmlNode> result;
    if (!*this)
        return result;
    try {
        const pugi::xpath_query query(std::string(expression).c_str());
        if (query.return_type() != pugi::xpath_type_node_set)
            return refuse("the expression does not select nodes");
        auto nodes = query.evaluate_node_set(Access::tree(*this));
        nodes.sort();
        for (const auto& found : nodes) {
            if (isKept(found.node()))
                result.push_back(Access::node(*this, found.node()));
        }
    } catch (const pugi::xpath_exception& malformed) {
        return refuse(malformed.what());
    }
    return result;
}

} // namespace dmf
