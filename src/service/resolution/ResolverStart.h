#pragma once

#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMMessageQueue.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

#include "platform/host/Nap.h"

class ADMBaseServiceResolver;
class ADMServiceInfo;
class IDMDevice;

namespace dmf::internal {

/// One start of a resolver: what is to be done, and what came of it. Each `resolveService` makes another, so that
/// nothing which an earlier one still says can be taken for the later one's.
///
///     idle ──resolveService──► resolving ──found, or out of time──► ended (the delegate is told once)
///                                  └──stop, a later start, the resolver's end──► dropped (nobody is told)
///
/// The resolver, the thread that works for the start, its timer and its queue share it; none of them keeps the
/// resolver. Guarded by the resolver's lock, but for the nap.
struct ResolverStart {
    enum class State { idle, resolving, ended, dropped };
    State state = State::idle;

    std::weak_ptr<RunLoop> runLoop;
    std::vector<std::string> modes;
    double timeout = 0;
    Dictionary parameters;
    std::shared_ptr<ADMServiceInfo> service;

    Dictionary resolvedInfo;
    std::shared_ptr<IDMDevice> resolvedDevice;
    Dictionary lastError;

    std::shared_ptr<RunLoopTimer> timer;
    std::shared_ptr<ADMMessageQueue> queue; ///< hands the end over to the run loop
    bool hasWorker = false;                 ///< whether a thread works for it
    double deadline = 0;                    ///< by the host's steady clock
    Nap betweenAttempts;
};

/// While it lives, the resolver's operations on this thread are about that start, whatever has been started since: the
/// operations that a plug-in overrides and calls have no argument that would say so. A start on this thread takes its
/// place.
class ResolverScope {
public:
    ResolverScope(const ADMBaseServiceResolver& resolver, std::shared_ptr<ResolverStart> start);
    ~ResolverScope();
    ResolverScope(const ResolverScope&) = delete;
    ResolverScope& operator=(const ResolverScope&) = delete;

    /// The innermost of the calling thread for that resolver; null outside of all.
    [[nodiscard]] static ResolverScope* current(const ADMBaseServiceResolver& resolver) noexcept;

    std::shared_ptr<ResolverStart> start;

private:
    const ADMBaseServiceResolver& resolver_;
    ResolverScope* const outer_;
};

} // namespace dmf::internal
