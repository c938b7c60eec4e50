#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace dmf::internal {

/// How far a connection provider's worker has come since it was started; see ADMConnectionProvider for the diagram.
/// `leaving` becomes none with the thread's end, which the worker thread itself knows. Thread-safe; its lock is taken
/// after the channel's, and the thread's start is all that is called while it is held.
class WorkerStage {
public:
    enum class Stage { starting, serving, leaving };

    /// The last start's; of no meaning when no thread runs.
    [[nodiscard]] Stage now() const;
    /// Starts the thread by `start`, which gives 0 for success; whatever the thread says comes after `first`.
    std::int32_t begin(const std::function<std::int32_t()>& start, Stage first);
    /// Waits while it is starting; true when it serves.
    [[nodiscard]] bool awaitWord();

    void serves();
    /// True when it served until now.
    bool leaves();

private:
    mutable std::mutex lock_;
    std::condition_variable changed_;
    Stage stage_ = Stage::leaving; // guarded by lock_
};

} // namespace dmf::internal
