#pragma once

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf::internal {

enum class ThreadForm { joinable, detached };

/// Starts a thread of the library: it shows `name` (cut to 15 characters) to debuggers, has all signals blocked, so
/// that the host's handlers never run on it, and lets go of its run loop as it ends. `body` is destroyed on the thread.
/// Gives 0, -1 when the thread's attributes cannot be prepared, otherwise the system's error number, EAGAIN in
/// a copy of the process by fork as well; then `body` has not run. For a joinable thread `started` receives what to
/// join (or to detach); it may be null for a detached one. Thread-safe. Exported for the tests.
[[nodiscard]] DMF_EXPORT std::int32_t startThread(std::string_view name, ThreadForm form, std::function<void()> body,
                                                  pthread_t* started = nullptr);

/// Whether the calling thread was started by `startThread`.
[[nodiscard]] bool isLibraryThread() noexcept;

} // namespace dmf::internal
