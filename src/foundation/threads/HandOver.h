#pragma once

#include <condition_variable>
#include <mutex>

#include <dmf/IDMLock.h>
#include <dmf/platform/Export.h>

namespace dmf::internal {

/// A lock that one thread takes and any thread may release: a binary semaphore, for handing a turn from one thread to
/// another. Whoever waits in `lock` may destroy the object as soon as it has it. Thread-safe. Exported for the tests.
class DMF_EXPORT HandOver final : public IDMLock {
public:
    enum class State { free, taken };
    explicit HandOver(State state = State::free) noexcept;
    ~HandOver() override;
    HandOver(const HandOver&) = delete;
    HandOver& operator=(const HandOver&) = delete;

    std::int32_t lock() override;
    /// EPERM when it is free already; then it stays so.
    std::int32_t unlock() override;
    [[nodiscard]] std::int32_t trylock() override;

private:
    std::mutex lock_;
    std::condition_variable released_;
    bool isTaken_; // guarded by lock_
};

} // namespace dmf::internal
