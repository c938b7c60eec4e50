#include <dmf/ADMBaseServiceResolver.h>

#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Error.h>

#include <cmath>
#include <utility>

#include "service/resolution/ResolverStart.h"

using dmf::internal::ResolverScope;
using dmf::internal::ResolverStart;
using State = ResolverStart::State;

ADMBaseServiceResolver::ADMBaseServiceResolver() : start_(std::make_shared<ResolverStart>()) {}

ADMBaseServiceResolver::~ADMBaseServiceResolver()
{
    drop(start_);
}

std::string ADMBaseServiceResolver::connectionType()
{
    throw dmf::UnrecognizedOperation("ADMBaseServiceResolver", "connectionType");
}

std::shared_ptr<ResolverStart> ADMBaseServiceResolver::start() const
{
    const auto* const scope = ResolverScope::current(*this);
    if (scope)
        return scope->start;
    std::lock_guard guard(lock_);
    return start_;
}

bool ADMBaseServiceResolver::isToBeTold(const ResolverStart& start) const
{
    std::lock_guard guard(lock_);
    return start.state == State::ended; // and neither stopped nor followed by a later one
}

void ADMBaseServiceResolver::resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout,
                                            const dmf::Dictionary& parameters, std::shared_ptr<dmf::RunLoop> runLoop,
                                            const std::vector<std::string>& modes)
{
    auto fresh = std::make_shared<ResolverStart>();
    fresh->state = State::resolving;
    fresh->runLoop = runLoop;
    fresh->modes = modes;
    fresh->timeout = timeout;
    fresh->parameters = parameters;
    fresh->service = std::move(service);
    if (auto* const scope = ResolverScope::current(*this))
        scope->start = fresh;
    {
        std::lock_guard guard(lock_);
        start_->state = State::dropped;
        std::swap(start_, fresh);
    }
    // What was the start before goes without the lock: the end of its device may wait for a thread that asks this
    // resolver.
    drop(fresh);
}

void ADMBaseServiceResolver::stop()
{
    drop(start());
}

void ADMBaseServiceResolver::drop(const std::shared_ptr<ResolverStart>& start)
{
    std::shared_ptr<dmf::RunLoopTimer> timer;
    std::shared_ptr<ADMMessageQueue> queue;
    {
        std::lock_guard guard(lock_);
        start->state = State::dropped;
        start->hasWorker = false; // one that still works, works for nobody
        timer = std::exchange(start->timer, nullptr);
        queue = start->queue;
    }
    start->betweenAttempts.end();
    if (timer)
        timer->invalidate();
    if (queue)
        queue->invalidate();
}

void ADMBaseServiceResolver::setupTimer()
{
    removeTimer(); // one that was set up before would end the resolution early
    const auto start = this->start();
    std::lock_guard guard(lock_);
    const auto runLoop = start->runLoop.lock();
    if (!runLoop || start->modes.empty())
        return;
    // Every resolution ends with a word to the delegate: what is no length of time is none at all.
    const double seconds = std::isnan(start->timeout) ? 0 : start->timeout;
    const auto fireDate = std::isfinite(seconds) ? dmf::Date::afterNow(seconds)
                          : seconds > 0          ? dmf::Date::distantFuture()
                                                 : dmf::Date::now();
    start->timer = dmf::RunLoopTimer::create(
        fireDate, 0, dmf::RunLoopTimer::Repeat::no,
        [weak = weak_from_this(), weakStart = std::weak_ptr(start)](dmf::RunLoopTimer& fired) {
            const auto self = weak.lock();
            const auto about = weakStart.lock();
            if (!self || !about || !self->isTimer(fired, *about))
                return;
            const ResolverScope scope(*self, about);
            self->timeoutDidFire();
        });
    for (const auto& mode : start->modes)
        runLoop->addTimer(start->timer, mode);
}

bool ADMBaseServiceResolver::isTimer(const dmf::RunLoopTimer& timer, const ResolverStart& start) const
{
    std::lock_guard guard(lock_);
    return start.timer.get() == &timer;
}

void ADMBaseServiceResolver::removeTimer()
{
    const auto start = this->start();
    std::shared_ptr<dmf::RunLoopTimer> timer;
    {
        std::lock_guard guard(lock_);
        timer = std::exchange(start->timer, nullptr);
    }
    if (timer)
        timer->invalidate();
}

void ADMBaseServiceResolver::timeoutDidFire()
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->timer = nullptr;
    setResolving(false);
    start->lastError = errorWithDescription("Resolving timed out.");
}

void ADMBaseServiceResolver::tellDelegate()
{
    const auto keptAlive = weak_from_this().lock();
    const auto told = delegate();
    if (told && told->serviceResolverDidFinish)
        told->serviceResolverDidFinish(*this);
}

dmf::Dictionary ADMBaseServiceResolver::errorWithDescription(std::string_view description)
{
    dmf::Dictionary error;
    error.set(kDMErrorCode, -1);
    error.set(kDMErrorDescription, description);
    return error;
}

dmf::Dictionary ADMBaseServiceResolver::lastError() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->lastError;
}

dmf::Dictionary ADMBaseServiceResolver::resolvedInfo() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->resolvedInfo;
}

std::shared_ptr<IDMDevice> ADMBaseServiceResolver::resolvedDevice() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->resolvedDevice;
}

std::shared_ptr<ADMServiceResolverDelegate> ADMBaseServiceResolver::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMBaseServiceResolver::setDelegate(const std::shared_ptr<ADMServiceResolverDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

dmf::Dictionary ADMBaseServiceResolver::parameters() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->parameters;
}

std::shared_ptr<dmf::RunLoop> ADMBaseServiceResolver::runLoop() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->runLoop.lock();
}

std::vector<std::string> ADMBaseServiceResolver::modes() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->modes;
}

double ADMBaseServiceResolver::timeout() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->timeout;
}

bool ADMBaseServiceResolver::isResolving() const
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    return start->state == State::resolving;
}

void ADMBaseServiceResolver::setResolvedInfo(dmf::Dictionary info, std::shared_ptr<IDMDevice> device)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    std::swap(start->resolvedInfo, info);
    std::swap(start->resolvedDevice, device); // what it was goes with the argument, after the lock
}

void ADMBaseServiceResolver::setLastError(dmf::Dictionary error)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->lastError = std::move(error);
}

void ADMBaseServiceResolver::setParameters(dmf::Dictionary parameters)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->parameters = std::move(parameters);
}

void ADMBaseServiceResolver::setModes(std::vector<std::string> modes)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->modes = std::move(modes);
}

void ADMBaseServiceResolver::setRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->runLoop = runLoop;
}

void ADMBaseServiceResolver::setTimeout(double timeout)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    start->timeout = timeout;
}

void ADMBaseServiceResolver::setResolving(bool resolving)
{
    const auto start = this->start();
    std::lock_guard guard(lock_);
    if (resolving)
        start->state = State::resolving;
    else if (start->state == State::resolving)
        start->state = State::ended;
}
