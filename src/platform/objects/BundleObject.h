#pragma once

#include <string>

#include "platform/objects/Modules.h"

// How the code of a bundle comes into the process. All thread-safe; none holds a lock while the loader is called.
namespace dmf::internal {

/// Why nothing of the bundle at `path` may be used, empty when all may be: the bundle's folder, the one that it lies in
/// or one above it is not trusted, as the path names them or once a link that stands for the bundle is resolved.
/// Folders that hold this library as well are no matter: whoever can change those has replaced the library itself.
[[nodiscard]] std::string reasonNotToTrustBundle(const std::string& path);

/// Loads the shared object that the description of the trusted bundle at `path` names: an undamaged object that lies in
/// the bundle, links resolved, where it and each folder down to it is trusted. It is opened once; what was looked at is
/// what is loaded. An empty base, with a reason in `refusal`, when it does not load; then none of its code has run,
/// unless that code is the reason.
[[nodiscard]] Module loadBundleObject(const std::string& path, const std::string& name, std::string& refusal);

} // namespace dmf::internal
