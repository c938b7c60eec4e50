#include <dmf/ADMLoggerPool.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

using Stack = std::vector<std::shared_ptr<ADMLogger>>;

// The pointer needs no construction, so a thread without loggers pays nothing, and it can still be read by what logs
// while the thread ends.
thread_local Stack* tStack = nullptr;
thread_local bool tEnded = false;

struct StackOwner {
    ~StackOwner()
    {
        tEnded = true;
        // Taken away first: a logger that goes may itself log.
        delete std::exchange(tStack, nullptr);
    }
};

Stack* stackForAdding()
{
    if (!tStack && !tEnded) {
        thread_local const StackOwner owner;
        (void)owner;
        tStack = new Stack;
    }
    return tStack;
}

} // namespace

void ADMLoggerPool::addLogger(std::shared_ptr<ADMLogger> logger)
{
    if (!logger)
        return;
    if (Stack* stack = stackForAdding())
        stack->push_back(std::move(logger));
}

void ADMLoggerPool::removeLogger(const std::shared_ptr<ADMLogger>& logger)
{
    if (!logger || !tStack)
        return;
    const auto found = std::ranges::find(*tStack, logger);
    if (found == tStack->end())
        return;
    // Held until the stack is whole again, since its end may log.
    const std::shared_ptr<ADMLogger> held = std::move(*found);
    tStack->erase(found);
}

std::shared_ptr<ADMLogger> ADMLoggerPool::lastLogger()
{
    return tStack && !tStack->empty() ? tStack->back() : nullptr;
}
