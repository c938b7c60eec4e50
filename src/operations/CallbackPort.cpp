#include "operations/CallbackPort.h"

#include <dmf/ADMCallback.h>

#include <algorithm>
#include <utility>

namespace dmf::internal {

CallbackPort::CallbackPort(std::size_t capacity, Seconds patience) : capacity_(capacity), patience_(patience) {}

std::shared_ptr<CallbackPort> CallbackPort::create(std::size_t capacity, Seconds patience)
{
    struct Made : CallbackPort {
        Made(std::size_t most, Seconds longest) : CallbackPort(most, longest) {}
    };
    const auto made = std::make_shared<Made>(capacity, patience);
    made->source_ = RunLoopSource::create([weak = std::weak_ptr<CallbackPort>(made)] {
        if (const auto port = weak.lock())
            port->performOldest();
    });
    return made;
}

CallbackPort::~CallbackPort()
{
    invalidate();
}

bool CallbackPort::send(std::shared_ptr<ADMCallback> callback)
{
    const auto limit =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(patience_);
    std::unique_lock guard(lock_);
    const bool isReady = changed_.wait_until(guard, limit, [this] { return !source_ || inbox_.size() < capacity_; });
    if (!isReady || !source_)
        return false;
    inbox_.push_back(std::move(callback));
    // While there are older ones, they are announced already.
    if (inbox_.size() == 1)
        announce();
    return true;
}

/// The run loop of the calling thread is not woken: it looks at its sources again before it next waits.
void CallbackPort::announce()
{
    source_->signal();
    for (const Place& place : places_) {
        if (!place.runLoop->isCurrent())
            place.runLoop->wakeUp();
    }
}

void CallbackPort::performOldest()
{
    std::shared_ptr<ADMCallback> oldest;
    {
        std::lock_guard guard(lock_);
        if (inbox_.empty())
            return;
        oldest = std::move(inbox_.front());
        inbox_.pop_front();
        // Beforehand: the callback may turn the run loop, take the port out of it, or throw.
        if (!inbox_.empty())
            announce();
        changed_.notify_one(); // there is room for one more
    }
    oldest->performCallback();
}

void CallbackPort::scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    std::vector<Place> ended; // goes outside the lock
    std::lock_guard guard(lock_);
    if (!source_)
        return;
    // A thread that ends does not take its run loop out of the list.
    const auto kept =
        std::stable_partition(places_.begin(), places_.end(), [](const Place& it) { return !it.runLoop->hasEnded(); });
    ended.assign(std::make_move_iterator(kept), std::make_move_iterator(places_.end()));
    places_.erase(kept, places_.end());
    Place place{runLoop, std::string(mode)};
    if (std::ranges::find(places_, place) == places_.end())
        places_.push_back(std::move(place));
    runLoop->addSource(source_, mode);
}

void CallbackPort::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    std::lock_guard guard(lock_);
    std::erase(places_, Place{runLoop, std::string(mode)});
    runLoop->removeSource(source_, mode);
}

bool CallbackPort::isValid() const
{
    std::lock_guard guard(lock_);
    return source_ != nullptr;
}

CallbackPort::Callbacks CallbackPort::invalidate()
{
    // The run loops go outside the lock as well.
    std::shared_ptr<RunLoopSource> source;
    std::vector<Place> places;
    Callbacks dropped;
    {
        std::lock_guard guard(lock_);
        source.swap(source_);
        places.swap(places_);
        dropped.swap(inbox_);
        changed_.notify_all();
    }
    if (source)
        source->invalidate();
    return dropped;
}

} // namespace dmf::internal
