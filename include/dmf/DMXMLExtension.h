#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <dmf/platform/Data.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Xml.h>

// Conveniences over the platform's XML tree for plug-ins that speak XML protocols to devices. All reentrant.

/// The document in `text`. Malformed text is repaired where possible: then there is a document and `error`, which may
/// be null, tells what was wrong with the text as it came. Empty, with an error, when there is no repairing it.
[[nodiscard]] DMF_EXPORT std::shared_ptr<dmf::XmlDocument> com_ql_dmf_DocumentWithXMLString(std::string_view text,
                                                                                            dmf::Error* error);
/// The same for bytes.
[[nodiscard]] DMF_EXPORT std::shared_ptr<dmf::XmlDocument> com_ql_dmf_DocumentWithData(const dmf::Data& data,
                                                                                       dmf::Error* error);

/// The child elements with that name, any namespace prefix left out, in document order.
[[nodiscard]] DMF_EXPORT std::vector<dmf::XmlElement> com_ql_dmf_elementsForLocalName(const dmf::XmlElement& element,
                                                                                      std::string_view localName);
/// The first of them, or an empty handle.
[[nodiscard]] DMF_EXPORT dmf::XmlElement com_ql_dmf_elementForLocalName(const dmf::XmlElement& element,
                                                                        std::string_view localName);
/// The first child element with that name in that namespace, or an empty handle.
[[nodiscard]] DMF_EXPORT dmf::XmlElement
com_ql_dmf_elementForLocalName(const dmf::XmlElement& element, std::string_view localName, std::string_view URI);
/// The first child element with that name as written, or an empty handle.
[[nodiscard]] DMF_EXPORT dmf::XmlElement com_ql_dmf_elementForName(const dmf::XmlElement& element,
                                                                   std::string_view name);

/// Gives the first child element with that local name the value as its text; a missing child is appended. Nothing
/// happens when `value` or `localName` is missing or is nothing that XML can carry.
DMF_EXPORT void DMFSetStringValue(const dmf::XmlElement& element, std::optional<std::string_view> value,
                                  std::optional<std::string_view> localName);
