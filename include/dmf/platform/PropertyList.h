#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf::PropertyList {

/// Reads a property list in XML form (format version 1.0). Nothing, with a reason in `errorDescription` when it is not
/// null, for anything malformed: unknown elements, a key without a value, text or a second value after the first,
/// bytes that are not UTF-8, nesting deeper than 512 levels. Numbers keep sign, the 64-bit range and fractions; dates
/// may lie beyond 2038. Never reads another file. Thread-safe.
[[nodiscard]] DMF_EXPORT std::optional<Value> parse(std::span<const std::uint8_t> bytes,
                                                    std::string* errorDescription = nullptr);

/// Writes a property list in XML form, UTF-8, keys sorted. Nothing, with a reason, when the value holds a null, an
/// object or text that XML cannot carry. Thread-safe.
[[nodiscard]] DMF_EXPORT std::optional<Data> serialize(const Value& value, std::string* errorDescription = nullptr);

} // namespace dmf::PropertyList
