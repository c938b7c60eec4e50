#include <dmf/ADMMessageQueue.h>

#include <utility>

#include <dmf/platform/Format.h>

using dmf::RunLoop;
using dmf::RunLoopSource;
using dmf::Value;

ADMMessageQueue::ADMMessageQueue(ADMMessageQueueInvocation invocation) : invocation_(std::move(invocation)) {}

std::shared_ptr<ADMMessageQueue> ADMMessageQueue::initWithInvocation(ADMMessageQueueInvocation invocation)
{
    struct Made : ADMMessageQueue {
        explicit Made(ADMMessageQueueInvocation function) : ADMMessageQueue(std::move(function)) {}
    };
    return invocation ? std::make_shared<Made>(std::move(invocation)) : nullptr;
}

ADMMessageQueue::~ADMMessageQueue()
{
    invalidate();
}

void ADMMessageQueue::addObject(Value object)
{
    if (object.isNull())
        return;
    std::lock_guard guard(lock_);
    if (!isValid_)
        return;
    objects_.push_back(std::move(object));
    // While there are older objects, a signal is out or a delivery is under way that comes to this one too.
    if (objects_.size() == 1)
        signal();
}

Value ADMMessageQueue::popFirstObject()
{
    std::lock_guard guard(lock_);
    if (objects_.empty())
        return {};
    Value first = std::move(objects_.front());
    objects_.pop_front();
    return first;
}

void ADMMessageQueue::removeAllObjects()
{
    std::deque<Value> removed; // goes outside the lock, whatever the objects do as they go
    std::lock_guard guard(lock_);
    removed.swap(objects_);
}

void ADMMessageQueue::signal()
{
    std::lock_guard guard(lock_);
    const auto source = source_.lock();
    if (!source)
        return;
    source->signal();
    for (const auto& place : places_)
        place.runLoop->wakeUp();
}

// The source holds the queue: where one may go, the queue is kept until its lock has been let go.

void ADMMessageQueue::scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    const auto source = CFSource();
    std::lock_guard guard(lock_);
    if (!objects_.empty())
        source->signal(); // nobody else would: only the first object does
    runLoop->addSource(source, mode);
    runLoop->wakeUp();
    places_.push_back({runLoop, std::string(mode), true});
}

void ADMMessageQueue::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    if (!runLoop)
        return;
    const auto keptAlive = shared_from_this();
    std::shared_ptr<RunLoopSource> source;
    std::lock_guard guard(lock_);
    source = source_.lock();
    runLoop->removeSource(source, mode);
    std::erase_if(places_, [&](const Place& place) { return place.runLoop == runLoop && place.mode == mode; });
    for (auto& place : places_)
        place.isListed = place.isListed && place.runLoop != runLoop;
}

void ADMMessageQueue::invalidate()
{
    // What goes here goes outside the lock.
    const auto keptAlive = weak_from_this().lock();
    std::shared_ptr<RunLoopSource> source;
    std::vector<Place> places;
    std::deque<Value> objects;
    std::lock_guard guard(lock_);
    isValid_ = false;
    source = std::exchange(source_, {}).lock();
    places.swap(places_);
    objects.swap(objects_);
    if (source)
        source->invalidate();
}

bool ADMMessageQueue::isValid() const
{
    std::lock_guard guard(lock_);
    return isValid_;
}

std::vector<std::shared_ptr<RunLoop>> ADMMessageQueue::runLoops() const
{
    std::vector<std::shared_ptr<RunLoop>> listed;
    std::lock_guard guard(lock_);
    for (const auto& place : places_)
        if (place.isListed)
            listed.push_back(place.runLoop);
    return listed;
}

std::shared_ptr<RunLoopSource> ADMMessageQueue::CFSource()
{
    std::lock_guard guard(lock_);
    auto source = source_.lock();
    if (!source) {
        source = RunLoopSource::create([self = shared_from_this()] { self->perform(); });
        source_ = source;
    }
    return source;
}

std::string ADMMessageQueue::description() const
{
    dmf::Array runLoopTexts;
    for (const auto& runLoop : runLoops())
        runLoopTexts.append(runLoop->description());
    const std::string self = dmf::formatted("<ADMMessageQueue %p>", static_cast<const void*>(this));
    const std::string invocation = dmf::formatted("<invocation %p>", static_cast<const void*>(&invocation_));
    return dmf::formatted("%@: %@", self,
                          dmf::Dictionary{{"invocation", invocation}, {"runLoops", std::move(runLoopTexts)}});
}

void ADMMessageQueue::perform()
{
    try {
        for (Value object = popFirstObject(); !object.isNull(); object = popFirstObject())
            invocation_(*this, object);
    } catch (...) {
        signal(); // the next object finds the queue not empty and would not: the rest would wait for ever
        throw;
    }
}
