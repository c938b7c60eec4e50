#pragma once

#include <cstdint>
#include <string>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

// Conversions of bytes. All thread-safe.

/// Two upper-case hexadecimal digits for each byte; empty for empty data.
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_hexadecimalRepresentationString(const dmf::Data& receiver);

/// Base64 (RFC 4648, the standard alphabet) with padding and without line breaks, as bytes and as a string.
[[nodiscard]] DMF_EXPORT dmf::Data com_ql_dmf_base64Data(const dmf::Data& receiver);
[[nodiscard]] DMF_EXPORT std::string com_ql_dmf_base64String(const dmf::Data& receiver);

/// The MD5 fold of the bytes; see ADMSecureData::MD5HashForData.
[[nodiscard]] DMF_EXPORT std::uint32_t com_ql_dmf_MD5Hash(const dmf::Data& receiver);

/// Whether a zero byte stands anywhere in the data, not only at its end: the bytes then hold the end of a C string.
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_hasNULLTermination(const dmf::Data& receiver) noexcept;
