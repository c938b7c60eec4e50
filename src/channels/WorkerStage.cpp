#include "channels/WorkerStage.h"

#include <utility>

namespace dmf::internal {

WorkerStage::Stage WorkerStage::now() const
{
    std::lock_guard guard(lock_);
    return stage_;
}

std::int32_t WorkerStage::begin(const std::function<std::int32_t()>& start, Stage first)
{
    std::lock_guard guard(lock_); // the thread says its first word when the stage is that of its own start
    const auto status = start();
    if (status == 0)
        stage_ = first;
    return status;
}

bool WorkerStage::awaitWord()
{
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return stage_ != Stage::starting; });
    return stage_ == Stage::serving;
}

void WorkerStage::serves()
{
    std::lock_guard guard(lock_);
    if (stage_ != Stage::starting)
        return; // asked to end meanwhile, or said before
    stage_ = Stage::serving;
    changed_.notify_all();
}

bool WorkerStage::leaves()
{
    std::lock_guard guard(lock_);
    const bool wasServing = std::exchange(stage_, Stage::leaving) == Stage::serving;
    changed_.notify_all();
    return wasServing;
}

} // namespace dmf::internal
