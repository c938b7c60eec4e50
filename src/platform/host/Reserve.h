#pragma once

namespace dmf::internal {

/// Whether the process may open as many descriptors as a main context, and what is opened beside it meanwhile, needs.
/// GLib ends the program where it gets none, so this is asked before each thing of GLib's that opens some by itself.
/// `errno` is as it was. Thread-safe.
[[nodiscard]] bool canOpenDescriptors() noexcept;

/// Whether the process may start the thread that GDBus starts with its first connection. GLib ends the program where it
/// gets none. Costs two short threads. Thread-safe.
[[nodiscard]] bool canStartThreads();

} // namespace dmf::internal
