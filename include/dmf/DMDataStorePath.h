#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>

/// Paths by which settings are addressed in a data store: an optional domain step, then item steps, joined by "/":
///
///     domain[@name="DOMAIN"]/item[@key="KEY"]/item[@key="KEY"]
///
/// Names and keys stand in the path as they are; one that holds a quotation mark cannot be read back. Thread-safe.

/// The domain step for the receiver.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_stringByConvertingToDataStoreDomainName(std::string_view receiver);
/// The item step for the receiver.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_stringByConvertingToDataStoreItemPath(std::string_view receiver);
/// The receiver, a path, with an item step for `key` behind it.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_stringByAppendingDataStorePathComponent(std::string_view receiver,
                                                                                        std::string_view key);

/// The keys of the receiver's item steps, in order. Blanks and line ends between the pieces do not count; text that is
/// no item step ends the list. Nothing when there is no item step, or when a step is malformed.
[[nodiscard]] DMF_EXPORT std::optional<std::vector<std::string>> com_ql_dmf_dataStoreKeyList(std::string_view receiver);
/// The name in the domain step with which the receiver begins; nothing when it does not, or when the name is empty.
[[nodiscard]] DMF_EXPORT std::optional<std::string> com_ql_dmf_dataStoreDomainName(std::string_view receiver);
