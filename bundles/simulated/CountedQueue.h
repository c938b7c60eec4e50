#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <dmf/ADMOperationQueue.h>

namespace dmf::simulated {

/// The queue that a service's operations share. Each operation binds it to the run loops where its own outcome is
/// wanted, and the queue leaves a mode with the last operation that was bound there. Where it is bound, the others'
/// outcomes are reported as well: a mode that is to be quiet takes a queue of its own. Thread-safe.
class CountedQueue {
public:
    [[nodiscard]] ADMOperationQueue& queue() noexcept { return queue_; }

    void bind(const std::shared_ptr<RunLoop>& runLoop, const std::string& mode)
    {
        std::lock_guard guard(lock_);
        if (++counts_[{runLoop, mode}] == 1)
            queue_.scheduleInRunLoop(runLoop, mode);
    }
    void unbind(const std::shared_ptr<RunLoop>& runLoop, const std::string& mode)
    {
        std::lock_guard guard(lock_);
        const auto place = counts_.find({runLoop, mode});
        if (place == counts_.end() || --place->second > 0)
            return;
        counts_.erase(place);
        queue_.removeFromRunLoop(runLoop, mode);
    }

private:
    ADMOperationQueue queue_;
    std::mutex lock_;
    std::map<std::pair<std::shared_ptr<RunLoop>, std::string>, std::size_t> counts_; // guarded by lock_
};

} // namespace dmf::simulated
