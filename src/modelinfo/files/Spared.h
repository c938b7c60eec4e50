#pragma once

#include <new>
#include <string_view>
#include <utility>

#include "foundation/logging/AfterFork.h"
#include "modelinfo/files/ModelInfoLog.h"

namespace dmf::internal {

/// Stands for a call of the database's own while it is under way on this thread.
class SparedCall {
public:
    SparedCall() noexcept { ++depth; }
    ~SparedCall() { --depth; }
    SparedCall(const SparedCall&) = delete;
    SparedCall& operator=(const SparedCall&) = delete;
    [[nodiscard]] static bool isWithinAnother() noexcept { return depth > 0; }

private:
    static inline thread_local int depth = 0;
};

/// Thrown where there is no answer for want of something else than memory, which the log has told.
class NoAnswer : public std::bad_alloc {};

/// What `action` gives, or an empty result, with a line in the log, where memory ran short meanwhile: a shortage is no
/// answer about the database and none that a program should have to expect from it. Whoever asks later gets the answer.
/// Within another such call the shortage goes on to that one, which must not take it for an answer either.
template <class Action>
[[nodiscard]] auto spared(std::string_view doing, Action action) -> decltype(action())
{
    if (isRefusedAfterFork())
        return {};
    try {
        const SparedCall call;
        return action();
    } catch (const std::bad_alloc& shortage) {
        if (SparedCall::isWithinAnother())
            throw;
        if (dynamic_cast<const NoAnswer*>(&shortage))
            return {};
        try {
            logModelInfo("errors", "ModelInfo: memory ran short while %@", doing);
        } catch (const std::bad_alloc&) {
            // There is none for the line either.
        }
    }
    return {};
}

} // namespace dmf::internal
