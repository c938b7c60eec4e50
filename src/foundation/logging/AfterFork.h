#pragma once

namespace dmf::internal {

/// Whether what is asked is to be refused, with the operation's empty answer, because this process is a copy by fork of
/// one that used the library: in a copy an operation may wait for ever. The first refusal leaves a line in the log.
/// Asked before the first lock of an operation that a program begins with. Never waits longer than a second.
[[nodiscard]] bool isRefusedAfterFork() noexcept;

/// Whether a line may go to the log: in a copy, the one of the refusal only.
[[nodiscard]] bool mayLog() noexcept;

} // namespace dmf::internal
