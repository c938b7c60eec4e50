#include <dmf/ADMThreadedServiceResolver.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include "platform/Host.h"
#include "platform/Thread.h"

namespace {

constexpr int kCompletionMessage = 5;
constexpr double kSecondsBetweenAttempts = 1.0;
/// The longest that a sleeping worker goes without a look at the clock and at whether it is still needed.
constexpr double kLongestNap = 0.02;

/// By the host's clock; shorter only when there is nothing left to try for.
void sleepBetweenAttempts(const std::weak_ptr<ADMThreadedServiceResolver>& resolver)
{
    const auto& host = dmf::internal::Host::current();
    const double end = host.steadyNow() + kSecondsBetweenAttempts;
    for (double left = kSecondsBetweenAttempts; left > 0 && !resolver.expired(); left = end - host.steadyNow())
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(left, kLongestNap)));
}

bool isServed(const std::shared_ptr<dmf::RunLoop>& runLoop)
{
    return runLoop && !runLoop->hasEnded();
}

} // namespace

ADMThreadedServiceResolver::ADMThreadedServiceResolver() = default;

ADMThreadedServiceResolver::~ADMThreadedServiceResolver()
{
    ADMThreadedServiceResolver::stop();
}

void ADMThreadedServiceResolver::resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout,
                                                const dmf::Dictionary& parameters,
                                                std::shared_ptr<dmf::RunLoop> runLoop,
                                                const std::vector<std::string>& modes)
{
    if (!runLoop || modes.empty()) {
        setLastError(errorWithDescription("invalid run loop or mode parameters passed to "
                                          "[resolveService:withTimeout:parameters:onRunLoop:inModes:]"));
        tellDelegate();
        return;
    }
    ADMBaseServiceResolver::resolveService(service, timeout, parameters, runLoop, modes);
    const auto queue = messageQueue();
    for (const auto& mode : modes)
        queue->scheduleInRunLoop(runLoop, mode);
    setupTimer();
    setServiceInfo(std::move(service));

    std::lock_guard guard(*this);
    deadline_ = dmf::internal::Host::current().steadyNow() + timeout;
    if (isResolvingThreadSpawned_)
        return;
    const auto weak = std::weak_ptr(std::static_pointer_cast<ADMThreadedServiceResolver>(shared_from_this()));
    const auto status = dmf::internal::startThread("dmf-resolver", dmf::internal::ThreadForm::detached,
                                                   [weak] { serviceResolving(weak); });
    isResolvingThreadSpawned_ = status == 0;
    if (status != 0) // the time-out reports it
        DMFLog("errors", "ServiceInfo: cannot start a thread to resolve a service (error %d)", status);
}

void ADMThreadedServiceResolver::stop()
{
    ADMBaseServiceResolver::stop();
    std::shared_ptr<ADMMessageQueue> queue;
    {
        std::lock_guard guard(*this);
        queue = messageQueue_;
        isResolvingThreadSpawned_ = false;
    }
    if (queue)
        queue->invalidate();
}

void ADMThreadedServiceResolver::timeoutDidFire()
{
    std::shared_ptr<ADMMessageQueue> queue;
    {
        std::lock_guard guard(*this);
        if (!isResolving())
            return;
        ADMBaseServiceResolver::timeoutDidFire();
        queue = messageQueue_;
    }
    if (queue)
        queue->addObject(kCompletionMessage);
}

void ADMThreadedServiceResolver::findService()
{
    throw dmf::UnrecognizedOperation("ADMThreadedServiceResolver", "findService");
}

/// The worker. It keeps the resolver alive while it works for it, and only then: whoever lets go of a resolver need not
/// wait for a worker that sleeps.
void ADMThreadedServiceResolver::serviceResolving(std::weak_ptr<ADMThreadedServiceResolver> weakResolver)
{
    for (;;) {
        auto resolver = weakResolver.lock();
        if (!resolver)
            return;
        if (resolver->attempt()) {
            resolver->workerDidEnd();
            return;
        }
        resolver.reset();
        sleepBetweenAttempts(weakResolver);
        resolver = weakResolver.lock();
        if (!resolver)
            return;
        if (!resolver->isWorthAnotherAttempt()) {
            resolver->workerDidEnd();
            return;
        }
    }
}

/// Whether the resolution succeeded. An error of an earlier attempt stays on purpose: once an attempt has failed, the
/// resolution ends by its time-out.
bool ADMThreadedServiceResolver::attempt()
{
    bool failed = true;
    try {
        findService();
        failed = false;
    } catch (const std::exception& error) {
        DMFLog("errors", "ServiceInfo: exception '%@' while resolving a service", error);
    } catch (...) {
        DMFLog("errors", "ServiceInfo: unknown exception while resolving a service");
    }
    std::lock_guard guard(*this);
    if (failed && isResolving())
        setLastError(errorWithDescription("Cannot resolve device under specified URI."));
    if (!lastError().empty())
        return false;
    setResolving(false);
    return true;
}

/// A failed attempt leaves the time-out as the only outcome, and only the run loop can bring that about. A loop that
/// does not turn, or whose thread has ended, must not keep a thread trying for good.
bool ADMThreadedServiceResolver::isWorthAnotherAttempt() const
{
    std::lock_guard guard(*this);
    return isResolving() && isServed(runLoop()) && dmf::internal::Host::current().steadyNow() < deadline_;
}

void ADMThreadedServiceResolver::workerDidEnd()
{
    std::shared_ptr<ADMMessageQueue> queue;
    std::shared_ptr<ADMServiceInfo> abandoned; // goes after the lock
    {
        std::lock_guard guard(*this);
        isResolvingThreadSpawned_ = false;
        if (lastError().empty()) // otherwise the time-out has posted the message
            queue = messageQueue_;
        // Nobody is left to finish the resolution; the service, which may own this resolver, must not wait for it.
        if (!isServed(runLoop()))
            std::swap(abandoned, serviceInfo_);
    }
    if (queue)
        queue->addObject(kCompletionMessage);
}

bool ADMThreadedServiceResolver::isValid() const
{
    std::lock_guard guard(*this);
    return isResolvingThreadSpawned_;
}

std::shared_ptr<ADMServiceInfo> ADMThreadedServiceResolver::serviceInfo() const
{
    std::lock_guard guard(*this);
    return serviceInfo_;
}

void ADMThreadedServiceResolver::setServiceInfo(std::shared_ptr<ADMServiceInfo> service)
{
    std::lock_guard guard(*this);
    std::swap(serviceInfo_, service);
}

/// Made on first use, because a constructor cannot hand out references to its object; kept for good, so that what was
/// invalidated by `stop` stays so.
std::shared_ptr<ADMMessageQueue> ADMThreadedServiceResolver::messageQueue()
{
    std::lock_guard guard(*this);
    if (!messageQueue_)
        messageQueue_ =
            ADMMessageQueue::initWithTarget(std::static_pointer_cast<ADMThreadedServiceResolver>(shared_from_this()),
                                            &ADMThreadedServiceResolver::messageQueueHasObject);
    return messageQueue_;
}

void ADMThreadedServiceResolver::messageQueueHasObject(ADMMessageQueue&, const dmf::Value& object)
{
    const auto* const number = object.asNumber();
    if (number && number->int64Value() == kCompletionMessage)
        tellDelegate();
}
