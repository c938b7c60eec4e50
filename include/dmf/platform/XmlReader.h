#pragma once

#include <span>
#include <string_view>

#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>

namespace dmf {

/// Receives the parts of an XML document in their order. What it is given is good during the call only.
class DMF_EXPORT XmlReceiver {
public:
    struct Attribute {
        std::string_view name;
        std::string_view value;
    };

    virtual ~XmlReceiver();
    /// Names are qualified names as they stand; declarations of namespaces are attributes.
    virtual void beginElement(std::string_view name, std::span<const Attribute> attributes) = 0;
    /// All text between two tags, however it is written. Nothing but white space is no text.
    virtual void text(std::string_view text) = 0;
    virtual void endElement() = 0;
};

/// Reads a document that XmlDocument::parse would take, and hands its parts over instead of keeping them. False for any
/// other, with an error in `error` when it is not null; what was received until then is of no worth. What the receiver
/// throws is passed on. Reentrant.
[[nodiscard]] DMF_EXPORT bool readXml(std::string_view text, XmlReceiver& receiver, Error* error = nullptr);

} // namespace dmf
