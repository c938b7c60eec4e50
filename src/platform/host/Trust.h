#pragma once

#include <string>

namespace dmf::internal {

/// Why the code or text in the file or folder at `path` must not be used: it is gone, it belongs to an ordinary user
/// other than this program's, or others may write to it (everybody, or a group other than root's and the one of the
/// user's own number, of which nobody else is a member). Empty when nothing speaks against it. A program with raised
/// privileges trusts root alone. Thread-safe.
[[nodiscard]] std::string reasonNotToTrust(const std::string& path);

} // namespace dmf::internal
