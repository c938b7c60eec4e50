#include <dmf/ADMXMLNode.h>

#include <array>

namespace {

constexpr std::array<std::string_view, 13> nodeOperations{
    "name",           "kind",         "setKind:", "content",   "setContent:",
    "userInfo",       "setUserInfo:", "children", "addChild:", "removeChildAtIndex:",
    "removeChildren", "isACopyOf:",   "isLeaf"};
constexpr dmf::Protocol nodeProtocol("ADMXMLNode", {}, nodeOperations);

constexpr std::array<const dmf::Protocol*, 1> elementAdopts{&nodeProtocol};
constexpr std::array<std::string_view, 13> elementOperations{"addElement:",
                                                             "attributes",
                                                             "setAttributes:",
                                                             "elementNamed:",
                                                             "elementsNamed:",
                                                             "elementNamed:withAttributes:",
                                                             "elementNamed:withAttributeValue:forAttribute:",
                                                             "elementsForXPath:",
                                                             "namespaces",
                                                             "stringRepresentation",
                                                             "elementIdentifier",
                                                             "isMatrix",
                                                             "isArray"};
constexpr dmf::Protocol elementProtocol("ADMXMLElement", elementAdopts, elementOperations);

} // namespace

const dmf::Protocol& ADMXMLNode::protocol()
{
    return nodeProtocol;
}

ADMXMLNode::~ADMXMLNode() = default;

ADMXMLNodeImp* ADMXMLNode::asOwnKind() noexcept
{
    return nullptr;
}

const dmf::Protocol& ADMXMLElement::protocol()
{
    return elementProtocol;
}

ADMXMLElement::~ADMXMLElement() = default;
