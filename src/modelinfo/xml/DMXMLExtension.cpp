#include <dmf/DMXMLExtension.h>

#include <span>

using dmf::Error;
using dmf::XmlDocument;
using dmf::XmlElement;

namespace {

std::shared_ptr<XmlDocument> documentWith(std::span<const std::uint8_t> bytes, Error* error)
{
    Error first;
    Error second;
    auto document = XmlDocument::parse(bytes, dmf::kXmlNoOptions, &first);
    if (!document) {
        document = XmlDocument::parse(bytes, dmf::kXmlTidy, &second);
        if (document && (second || !document->rootElement()))
            document = nullptr;
    }
    // A repaired document comes with what was wrong with the original.
    if (error)
        *error = !document && second ? second : first;
    return document;
}

template <class T>
XmlElement firstOf(const std::vector<T>& elements)
{
    return elements.empty() ? XmlElement() : elements.front();
}

} // namespace

std::shared_ptr<XmlDocument> com_ql_dmf_DocumentWithXMLString(std::string_view text, Error* error)
{
    return documentWith({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, error);
}

std::shared_ptr<XmlDocument> com_ql_dmf_DocumentWithData(const dmf::Data& data, Error* error)
{
    return documentWith(data.bytes(), error);
}

std::vector<XmlElement> com_ql_dmf_elementsForLocalName(const XmlElement& element, std::string_view localName)
{
    auto elements = element.elements();
    std::erase_if(elements, [&](const XmlElement& child) { return child.localName() != localName; });
    return elements;
}

XmlElement com_ql_dmf_elementForLocalName(const XmlElement& element, std::string_view localName)
{
    return firstOf(com_ql_dmf_elementsForLocalName(element, localName));
}

XmlElement com_ql_dmf_elementForLocalName(const XmlElement& element, std::string_view localName, std::string_view URI)
{
    return firstOf(element.elementsForLocalName(localName, URI));
}

XmlElement com_ql_dmf_elementForName(const XmlElement& element, std::string_view name)
{
    return firstOf(element.elementsForName(name));
}

void DMFSetStringValue(const XmlElement& element, std::optional<std::string_view> value,
                       std::optional<std::string_view> localName)
{
    if (!value || !localName)
        return;
    if (const auto child = com_ql_dmf_elementForLocalName(element, *localName)) {
        child.setStringValue(*value);
        return;
    }
    const auto child = element.appendElement(*localName);
    if (child && !child.setStringValue(*value))
        child.remove();
}
