#pragma once

#include <chrono>
#include <functional>
#include <string_view>

#include <dmf/platform/RunLoop.h>

/// Turns a mode of the calling thread's run loop until the condition holds; false when it does not within half a
/// minute.
inline bool turnUntil(const std::function<bool()>& condition, std::string_view mode = dmf::kDefaultRunLoopMode)
{
    const auto loop = dmf::RunLoop::current();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    // Keeps the mode from ending at once when nothing else is scheduled in it.
    const auto keeper = dmf::RunLoopSource::create({});
    loop->addSource(keeper, mode);
    while (!condition() && std::chrono::steady_clock::now() < limit)
        loop->runMode(mode, dmf::Date::afterNow(0.005), true);
    keeper->invalidate();
    return condition();
}
