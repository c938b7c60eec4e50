#include <dmf/platform/XmlReader.h>

#include "platform/documents/XmlText.h"
#include "platform/documents/XmlTree.h"

#include <new>

namespace dmf {

using namespace internal;

namespace {

std::optional<xml::Fault> read(std::string_view text, XmlReceiver& receiver)
{
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    xml::Scan found;
    if (const auto refusal = xml::refusal(text, found); refusal.reason)
        return xml::Fault{refusal.code, refusal.reason};
    // White space that stands alone between two tags means nothing, and the tokenizer leaves it out; within a text that
    // comments or sections divide it counts, so the dearer way is taken when there are any.
    const std::size_t declarations = text.starts_with("<?xml") ? 1 : 0;
    const unsigned spaces = found.sections > declarations ? pugi::parse_ws_pcdata : 0;
    std::string buffer;
    pugi::xml_document document;
    if (auto fault = xml::tokenize(text, spaces | pugi::parse_embed_pcdata, buffer, document))
        return fault;
    return xml::handOver(document, text, buffer, receiver);
}

} // namespace

XmlReceiver::~XmlReceiver() = default;

bool readXml(std::string_view text, XmlReceiver& receiver, Error* error)
{
    if (error)
        *error = Error();
    const auto fault = read(text, receiver);
    if (fault && error)
        *error = xml::errorOf(*fault);
    return !fault;
}

namespace internal::xml {

std::optional<Fault> tokenize(std::string_view text, unsigned options, std::string& buffer,
                              pugi::xml_document& document)
{
    // The tokenizer puts its own end mark over the last byte, so that must be one that nobody misses.
    buffer.reserve(text.size() + 1);
    buffer.append(text).push_back('\n');
    options |= pugi::parse_cdata | pugi::parse_comments | pugi::parse_eol | pugi::parse_wconv_attribute |
               pugi::parse_doctype | pugi::parse_declaration | pugi::parse_pi | pugi::parse_fragment;
    const auto parsed = document.load_buffer_inplace(buffer.data(), buffer.size(), options, pugi::encoding_utf8);
    if (parsed)
        return {};
    if (parsed.status == pugi::status_out_of_memory)
        throw std::bad_alloc(); // says nothing about the text
    return Fault{XmlErrorCode::malformed, atLine(text, static_cast<std::size_t>(parsed.offset), parsed.description())};
}

} // namespace internal::xml
} // namespace dmf
