#pragma once

#include <functional>

namespace dmf::socket {

/// Starts a thread that is left to itself. It takes no signals: those are the host program's. False when there is none
/// to be had; then `body` is not called. The name is what debuggers show, 15 characters at most.
[[nodiscard]] bool startThread(const char* name, std::function<void()> body);

} // namespace dmf::socket
