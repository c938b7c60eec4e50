#pragma once

#include <string>

#include <sys/types.h>

#include <dmf/platform/Export.h>

// Whose code and text this program may use. Trusted are root and the program's own user; a program with raised
// privileges trusts root alone, since the user who started it is one of the others. Each function gives the reason
// against a file or folder, empty when there is none; what cannot be looked at is not trusted. All thread-safe.
// Exported for the tests; the header is not installed.
namespace dmf::internal {

/// Whether the files of that user are trusted.
[[nodiscard]] bool isTrustedUser(uid_t user) noexcept;

/// Why what is at `path` (a link is followed) must not be used: it is gone, it belongs to an ordinary user other than
/// this program's, or others may write to it: everybody, a group other than root's and the one of the user's own number
/// (of which nobody else is a member), or whoever its access list lets.
[[nodiscard]] DMF_EXPORT std::string reasonNotToTrust(const std::string& path);

/// The same for an open file; `name` stands for it in the reason.
[[nodiscard]] DMF_EXPORT std::string reasonNotToTrust(int descriptor, const std::string& name);

/// Why the folders above `path`, an absolute path without links, leave others the choice of what lies there: one of
/// them is not trusted. Others may write to one with the sticky bit, though, where nobody can move what is not his. The
/// folder `known` and those above it are taken as they are, for callers that already depend on them.
///
/// Asked from the root downwards: nobody else can change the way to a folder that has passed, so what is at `path`
/// after this stays the same.
[[nodiscard]] DMF_EXPORT std::string reasonNotToTrustWayTo(const std::string& path, const std::string& known = {});

} // namespace dmf::internal
