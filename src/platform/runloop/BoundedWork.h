#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <gio/gio.h>

#include "platform/host/Bounds.h"

namespace dmf::internal {

/// Work whose caller waits for a bounded time only. The work runs on a thread of its own; work that is late is
/// cancelled, and ends by itself what it has begun. Thread-safe.
class BoundedWork : public std::enable_shared_from_this<BoundedWork> {
public:
    using Clock = std::chrono::steady_clock;

    explicit BoundedWork(Bounds bounds);
    ~BoundedWork();
    BoundedWork(const BoundedWork&) = delete;
    BoundedWork& operator=(const BoundedWork&) = delete;

    /// Becomes cancelled when the caller no longer waits; goes into every call that can block.
    [[nodiscard]] GCancellable* cancellable() const noexcept { return cancellable_; }
    [[nodiscard]] bool isLate() const noexcept { return g_cancellable_is_cancelled(cancellable_); }
    /// Called by the work once a person is asked: from here on the caller waits for up to the longer bound.
    void allowForPerson();

    /// What `work` gave, or nothing when it was late or threw, or no thread or descriptors could be had. The work owns
    /// what it needs: it may outlive the call.
    template <class Result>
    [[nodiscard]] static std::optional<Result> run(Bounds bounds, std::function<Result(BoundedWork&)> work)
    {
        struct Answer {
            std::optional<Result> value;
        };
        const auto answer = std::make_shared<Answer>();
        const bool isInTime =
            std::make_shared<BoundedWork>(bounds)->runToEnd([answer, work = std::move(work)](BoundedWork& running) {
                auto value = work(running);
                answer->value.emplace(std::move(value));
            });
        return isInTime ? std::move(answer->value) : std::nullopt;
    }

private:
    [[nodiscard]] bool runToEnd(std::function<void(BoundedWork&)> work);

    const Bounds bounds_;
    const Clock::time_point begin_;
    GCancellable* const cancellable_;
    std::mutex lock_;
    std::condition_variable changed_;
    Clock::time_point limit_; // guarded by lock_
    bool hasEnded_ = false;   // guarded by lock_
};

} // namespace dmf::internal
