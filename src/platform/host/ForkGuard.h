#pragma once

namespace dmf::internal {

/// Whether this process is a copy, made by fork, of one in which the library was used. The copy has one thread, and the
/// locks that others held as it was made stay taken for ever: it may not wait for anything of the library's.
/// The first call in a process tells it apart from its copies. Thread-safe; costs two reads of memory.
[[nodiscard]] bool isForkedCopy() noexcept;

} // namespace dmf::internal
