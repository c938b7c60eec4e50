#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {

/// The dictionary as bytes that read back as exactly the same on any machine, kinds of numbers included. Nothing when
/// it holds an object of the program or is nested deeper than 32 levels. Thread-safe.
/// Exported for the tests; its header is not installed.
[[nodiscard]] DMF_EXPORT std::optional<Data> archived(const Dictionary& dictionary);

/// The dictionary in an archive. The bytes need not be trusted: whatever `archived` could not have written gives
/// nothing. The size of what is read is bounded by that of the bytes. Thread-safe.
[[nodiscard]] DMF_EXPORT std::optional<Dictionary> unarchived(std::span<const std::uint8_t> bytes);

} // namespace dmf::internal
