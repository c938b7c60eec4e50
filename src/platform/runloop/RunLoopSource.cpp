#include "platform/runloop/RunLoopSource.h"

#include <utility>

namespace dmf {

RunLoopSource::Private::Private(std::function<void()> function)
    : perform(std::make_shared<const std::function<void()>>(std::move(function)))
{
}

void RunLoopSource::Private::performIfSignalled(internal::RunFrame* frame)
{
    std::shared_ptr<const std::function<void()>> performed;
    {
        std::lock_guard guard(lock);
        if (!isValid || !isSignalled.exchange(false))
            return;
        performed = perform;
    }
    if (frame)
        frame->hasHandled = true;
    if (*performed)
        (*performed)();
}

RunLoopSource::RunLoopSource(std::function<void()> perform) : private_(std::make_shared<Private>(std::move(perform))) {}

std::shared_ptr<RunLoopSource> RunLoopSource::create(std::function<void()> perform)
{
    struct Made : RunLoopSource {
        explicit Made(std::function<void()> function) : RunLoopSource(std::move(function)) {}
    };
    return std::make_shared<Made>(std::move(perform));
}

RunLoopSource::~RunLoopSource() = default;

void RunLoopSource::signal() noexcept
{
    private_->isSignalled = true;
}

void RunLoopSource::invalidate()
{
    const auto kept = private_; // the modes may hold the last reference to this object
    if (!kept->invalidate())
        return;
    std::shared_ptr<const std::function<void()>> dropped; // what it holds goes outside the lock
    std::lock_guard guard(kept->lock);
    dropped.swap(kept->perform);
}

bool RunLoopSource::isValid() const noexcept
{
    return private_->isValid;
}

} // namespace dmf
