#pragma once

#include <cstdint>
#include <functional>

namespace dmf::internal {

/// Starts a detached thread on which back ends are started or stopped. 0, or the system's error number; then `body` has
/// not run.
[[nodiscard]] std::int32_t startBackEndThread(std::function<void()> body);

/// Whether back ends may need the calling thread to start or to stop: one of those, or the discovery thread. Whoever is
/// on it does not wait for them.
[[nodiscard]] bool isBackEndThread();

} // namespace dmf::internal
