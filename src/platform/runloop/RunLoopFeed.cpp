#include "platform/runloop/RunLoopFeed.h"

#include <deque>
#include <mutex>
#include <utility>

namespace dmf::internal {

struct RunLoopFeed::State {
    std::mutex lock;
    std::deque<Call> calls;           // guarded by lock
    std::shared_ptr<RunLoop> runLoop; // guarded by lock
    bool isRetired = false;           // guarded by lock
    std::weak_ptr<RunLoopSource> source;

    void perform();
    [[nodiscard]] Call takeFirst();
    [[nodiscard]] bool isRetiredNow();
};

RunLoopFeed::Call RunLoopFeed::State::takeFirst()
{
    Call first;
    const auto own = source.lock();
    bool isDrained = false;
    {
        std::lock_guard guard(lock);
        if (!calls.empty()) {
            first = std::move(calls.front());
            calls.pop_front();
        }
        isDrained = calls.empty();
        // Before the call is made: it may throw, or turn the loop, and the others must be due all the same.
        if (!isDrained && own)
            own->signal();
        if (!isRetired)
            isDrained = false;
    }
    if (isDrained && own)
        own->invalidate();
    return first;
}

/// Makes the calls that are pending and those that come meanwhile, up to a limit, so that other sources have their
/// turn; of a retired feed all, since what follows them comes through another feed.
void RunLoopFeed::State::perform()
{
    constexpr int mostCallsATurn = 1000;
    for (int made = 0; made < mostCallsATurn || isRetiredNow(); ++made) {
        const Call call = takeFirst();
        if (!call)
            return;
        call();
    }
}

bool RunLoopFeed::State::isRetiredNow()
{
    std::lock_guard guard(lock);
    return isRetired;
}

RunLoopFeed::RunLoopFeed()
    : state_(std::make_shared<State>()), source_(RunLoopSource::create([state = state_] { state->perform(); }))
{
    state_->source = source_;
}

RunLoopFeed::~RunLoopFeed()
{
    std::deque<Call> dropped; // goes outside the lock
    {
        std::lock_guard guard(state_->lock);
        if (state_->isRetired && !state_->calls.empty())
            return;
        dropped.swap(state_->calls);
        state_->isRetired = true;
    }
    source_->invalidate();
}

void RunLoopFeed::schedule(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    {
        std::lock_guard guard(state_->lock);
        state_->runLoop = runLoop;
    }
    runLoop->addSource(source_, mode);
}

bool RunLoopFeed::add(Call call)
{
    std::lock_guard guard(state_->lock);
    if (state_->isRetired || !state_->runLoop || state_->runLoop->hasEnded())
        return false;
    state_->calls.push_back(std::move(call));
    if (state_->calls.size() == 1) {
        source_->signal();
        state_->runLoop->wakeUp();
    }
    return true;
}

void RunLoopFeed::retire()
{
    {
        std::lock_guard guard(state_->lock);
        state_->isRetired = true;
        if (!state_->calls.empty())
            return;
    }
    source_->invalidate();
}

} // namespace dmf::internal
