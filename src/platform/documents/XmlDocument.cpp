#include <dmf/platform/Xml.h>

#include "platform/documents/XmlText.h"
#include "platform/documents/XmlTidy.h"
#include "platform/documents/XmlTree.h"

#include <utility>

namespace dmf {

using namespace internal;

XmlDocument::XmlDocument(std::shared_ptr<XmlNode::State> state) : state_(std::move(state)) {}

XmlDocument::~XmlDocument() = default;

std::shared_ptr<XmlDocument> XmlDocument::parse(std::span<const std::uint8_t> bytes, unsigned options, Error* error)
{
    return parse(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), options, error);
}

std::shared_ptr<XmlDocument> XmlDocument::parse(std::string_view text, unsigned options, Error* error)
{
    if (error)
        *error = Error();
    const auto refuse = [&](const xml::Fault& fault) {
        if (error)
            *error = xml::errorOf(fault);
        return std::shared_ptr<XmlDocument>();
    };
    std::string repaired;
    if (options & kXmlTidy) {
        if (text.size() > kXmlMaximumSize)
            return refuse({XmlErrorCode::tooLarge, "the document is too large"});
        repaired = xml::tidied(text);
        text = repaired;
    }
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    xml::Scan found;
    if (const auto refusal = xml::refusal(text, found); refusal.reason)
        return refuse({refusal.code, refusal.reason});

    auto state = std::make_shared<XmlNode::State>();
    const unsigned spaces = options & kXmlPreserveWhitespace ? pugi::parse_ws_pcdata : 0;
    if (const auto fault = xml::tokenize(text, spaces, state->buffer, state->document))
        return refuse(*fault);
    if (const auto fault = xml::checkTree(state->document, text, state->buffer))
        return refuse(*fault);
    return std::shared_ptr<XmlDocument>(new XmlDocument(std::move(state)));
}

std::shared_ptr<XmlDocument> XmlDocument::withRootElement(std::string_view name)
{
    if (!xml::isName(name))
        return nullptr;
    auto state = std::make_shared<XmlNode::State>();
    state->document.append_child(std::string(name).c_str());
    return std::shared_ptr<XmlDocument>(new XmlDocument(std::move(state)));
}

XmlElement XmlDocument::rootElement() const
{
    return XmlNode::Access::element(state_, state_->document.document_element());
}

std::string XmlDocument::xmlString() const
{
    std::string text = R"(<?xml version="1.0" encoding="UTF-8"?>)";
    for (const auto& node : state_->document)
        xml::appendXml(text, node);
    return text;
}

Data XmlDocument::xmlData() const
{
    return Data::fromText(xmlString());
}

} // namespace dmf
