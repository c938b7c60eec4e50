#pragma once

#include <string_view>

/// What stands in XML documents beside elements and texts, as the tokenizer hands it over unread. All thread-safe.
namespace dmf::internal::xml {

/// The pseudo attributes of an XML declaration, between "<?xml" and "?>": version, then perhaps encoding, then perhaps
/// standalone.
[[nodiscard]] bool isDeclaration(std::string_view content) noexcept;
/// What follows "<!DOCTYPE": the root's name and perhaps where the declarations are; none of its own.
[[nodiscard]] bool isDocumentType(std::string_view content) noexcept;
/// The name of a processing instruction; "xml", in any letter case, is none.
[[nodiscard]] bool isInstructionTarget(std::string_view target) noexcept;
/// Why `name` cannot be declared as what `prefix` stands for, "" being the default; null where it can.
[[nodiscard]] const char* namespaceFault(std::string_view prefix, std::string_view name) noexcept;

} // namespace dmf::internal::xml
