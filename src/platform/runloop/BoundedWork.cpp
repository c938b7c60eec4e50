#include "platform/runloop/BoundedWork.h"

#include "platform/host/Reserve.h"
#include "platform/host/Thread.h"

namespace dmf::internal {
namespace {

BoundedWork::Clock::duration seconds(double count)
{
    return std::chrono::duration_cast<BoundedWork::Clock::duration>(std::chrono::duration<double>(count));
}

} // namespace

BoundedWork::BoundedWork(Bounds bounds)
    : bounds_(bounds), begin_(Clock::now()), cancellable_(g_cancellable_new()), limit_(begin_ + seconds(bounds.answer))
{
}

BoundedWork::~BoundedWork()
{
    g_object_unref(cancellable_);
}

void BoundedWork::allowForPerson()
{
    std::lock_guard guard(lock_);
    limit_ = begin_ + seconds(bounds_.person);
    changed_.notify_all();
}

bool BoundedWork::runToEnd(std::function<void(BoundedWork&)> work)
{
    const auto self = shared_from_this();
    auto body = [self, work = std::move(work)]() mutable {
        try {
            // GLib ends the program where its contexts, wake-ups or threads cannot be had.
            if (canOpenDescriptors() && canStartThreads())
                work(*self);
        } catch (const std::exception&) {
            // No memory, or no random numbers: to the caller it is an answer that never came.
        }
        work = nullptr; // what it holds goes before the caller goes on
        std::lock_guard guard(self->lock_);
        self->hasEnded_ = true;
        self->changed_.notify_all();
    };
    if (startThread("dmf-keyring", ThreadForm::detached, std::move(body)) != 0)
        return false;

    std::unique_lock guard(lock_);
    while (!hasEnded_ && Clock::now() < limit_)
        changed_.wait_until(guard, Clock::time_point(limit_));
    const bool isInTime = hasEnded_;
    guard.unlock();
    if (!isInTime)
        g_cancellable_cancel(cancellable_);
    return isInTime;
}

} // namespace dmf::internal
