#pragma once

#include <cstdint>
#include <vector>

#include "platform/secrets/Ciphers.h"

namespace dmf::internal {

/// Sends the whole of `data` through the cipher in pieces of 1024 bytes and gives what comes out. Lenient on purpose:
/// a piece that fails contributes nothing and the next one follows, a failed end drops the end only, so damage shows as
/// a shorter output that the reader of the content does not recognise. Exported for the tests; not installed.
[[nodiscard]] DMF_EXPORT std::vector<std::uint8_t> cryptedData(CipherStream& stream, Bytes data);

} // namespace dmf::internal
