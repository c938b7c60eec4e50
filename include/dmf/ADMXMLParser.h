#pragma once

#include <memory>
#include <string>

#include <dmf/ADMXMLElementImp.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// Reads XML documents into trees of elements. Implemented by plug-ins; a parser is used by one thread at a time.
class DMF_EXPORT ADMXMLParser {
public:
    using Factory = std::shared_ptr<ADMXMLParser>();
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMXMLParser();

    /// The root element of the document, or empty, with a reason in `errorDescription` when it is not null.
    ///
    /// Elements and attributes keep their names as written, declarations of namespaces being attributes. Runs of text
    /// make one text node however they are written; runs of nothing but white space make none. Comments and processing
    /// instructions leave no node. What must not be trusted is refused: anything that is not well-formed UTF-8, more
    /// than dmf::kXmlMaximumDepth levels or dmf::kXmlMaximumAttributes attributes of one element, more than
    /// dmf::kXmlMaximumSize bytes, and every entity but the predefined ones. Never reads another file. Throws
    /// std::bad_alloc where memory runs short, which is no verdict on the document.
    [[nodiscard]] virtual std::shared_ptr<ADMXMLElementImp> parseData(const dmf::Data& data,
                                                                      std::string* errorDescription = nullptr) = 0;
};
