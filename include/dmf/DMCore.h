#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// Prepares the process for the library, which uses threads of its own. A program calls it once, on its main thread,
/// before anything else of the library; further calls do nothing.
DMF_EXPORT void DMCoreInit();

/// Memory of the C library, owned by the caller and given back with DMFree. All thread-safe.
/// A size of 0 goes to the allocator unchanged.
[[nodiscard]] DMF_EXPORT void* DMMalloc(std::uint32_t size);
/// `count` times `size` zero bytes; null without allocating when either is 0.
[[nodiscard]] DMF_EXPORT void* DMCalloc(std::uint32_t count, std::uint32_t size);
/// Resizes a block. Null, and the block stays as it is and the caller's, when `size` is 0; null when `block` is null:
/// it never allocates a fresh block and never frees one.
[[nodiscard]] DMF_EXPORT void* DMRealloc(void* block, std::uint32_t size);
/// Ignores a null pointer.
DMF_EXPORT void DMFree(void* block);

/// What an interface requires at run time. Each gives its empty answer for a null interface, and on systems before
/// 10.5 (DMGetLocalSysVersion below 0x1050). All thread-safe.
/// The operations that the interface requires: those of the interfaces it adopts, from the last to the first and
/// duplicates included, then its own, again from the last to the first. Each is the constant text of the descriptor.
[[nodiscard]] DMF_EXPORT std::vector<const std::string_view*> DMGetObjCProtocolSelectors(const dmf::Protocol* protocol);
/// Whether both describe the same interface. Two null pointers are equal.
[[nodiscard]] DMF_EXPORT bool DMObjCProtocolsEqual(const dmf::Protocol* protocol, const dmf::Protocol* other);
/// Whether the interface, or one that it adopts, requires the operation.
[[nodiscard]] DMF_EXPORT bool DMObjCProtocolHasSelector(const dmf::Protocol* protocol, std::string_view operation);
[[nodiscard]] DMF_EXPORT std::string DMGetObjCProtocolName(const dmf::Protocol* protocol);

/// The system version in packed decimal digits: 0x1050 for 10.5.0. Thread-safe.
[[nodiscard]] DMF_EXPORT std::int32_t DMGetLocalSysVersion();

/// The user's first preferred language as language and region, such as "en-US", or the language alone where no region
/// is stated; nothing when the user prefers none. It comes from the first of LANGUAGE (its first entry), LC_ALL,
/// LC_MESSAGES and LANG that is set and not empty; "C" and "POSIX" are no language. Thread-safe as far as reading the
/// environment is.
[[nodiscard]] DMF_EXPORT std::optional<std::string> DMSystemLocaleString();

/// The name of a colour reduced to a key for comparison: "Light Cyan Ink" and "light-cyan cartridge" both give
/// "lightcyan". A missing name gives nothing; one without letters gives the empty text. Thread-safe.
[[nodiscard]] DMF_EXPORT std::optional<std::string> DMCanonicalColorName(const std::optional<std::string>& colorName);
