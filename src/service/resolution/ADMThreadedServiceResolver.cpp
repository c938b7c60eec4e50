#include <dmf/ADMThreadedServiceResolver.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <thread>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Thread.h"

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
    bool hasWorker = false;
    {
        std::lock_guard guard(*this);
        queue->removeAllObjects(); // an end of an earlier resolution that was not delivered
        deadline_ = dmf::internal::Host::current().steadyNow() + (std::isnan(timeout) ? 0 : timeout);
        hasWorker = std::exchange(isResolvingThreadSpawned_, true);
    }
    for (const auto& mode : modes)
        queue->scheduleInRunLoop(runLoop, mode);
    setupTimer();
    setServiceInfo(std::move(service));

    if (!hasWorker)
        startWorker();
}

void ADMThreadedServiceResolver::startWorker()
{
    const auto weak = std::weak_ptr(std::static_pointer_cast<ADMThreadedServiceResolver>(shared_from_this()));
    const auto status = dmf::internal::startThread("dmf-resolver", dmf::internal::ThreadForm::detached,
                                                   [weak] { serviceResolving(weak); });
    if (status == 0)
        return;
    DMFLog("errors", "ServiceInfo: cannot start a thread to resolve a service (error %d)", status);
    setLastError(errorWithDescription("Cannot resolve device under specified URI.")); // the time-out reports it
    workerDidEnd();
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
    releaseKeeper();
}

void ADMThreadedServiceResolver::timeoutDidFire()
{
    std::lock_guard guard(*this);
    if (!isResolving())
        return;
    ADMBaseServiceResolver::timeoutDidFire();
    if (messageQueue_)
        messageQueue_->addObject(kCompletionMessage);
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
    handServiceToRunLoop();
    std::lock_guard guard(*this);
    if (messageQueue_ && lastError().empty()) // otherwise the time-out has posted the message
        messageQueue_->addObject(kCompletionMessage);
    isResolvingThreadSpawned_ = false; // only now: whoever restarts the resolver finds the message and drops it
}

/// The service, which may own this resolver, is kept until its delegate is told, and only the run loop can do that. So
/// from now on it is the run loop that keeps it: when the loop's thread ends, nothing stays behind.
void ADMThreadedServiceResolver::handServiceToRunLoop()
{
    std::shared_ptr<ADMServiceInfo> service; // goes after the lock where no run loop takes it
    std::shared_ptr<dmf::RunLoopSource> keeper;
    const auto loop = runLoop();
    std::lock_guard guard(*this);
    if (!messageQueue_ || !messageQueue_->isValid()) // stopped: nobody is told
        return;
    service = std::exchange(serviceInfo_, nullptr);
    handedOver_ = service;
    if (!service || !loop)
        return;
    keeper = dmf::RunLoopSource::create([service] {});
    keeper_ = keeper;
    for (const auto& mode : modes())
        loop->addSource(keeper, mode);
}

void ADMThreadedServiceResolver::releaseKeeper()
{
    std::shared_ptr<dmf::RunLoopSource> keeper;
    {
        std::lock_guard guard(*this);
        keeper = std::exchange(keeper_, {}).lock();
    }
    if (keeper)
        keeper->invalidate();
}

bool ADMThreadedServiceResolver::isValid() const
{
    std::lock_guard guard(*this);
    return isResolvingThreadSpawned_;
}

std::shared_ptr<ADMServiceInfo> ADMThreadedServiceResolver::serviceInfo() const
{
    std::lock_guard guard(*this);
    return serviceInfo_ ? serviceInfo_ : handedOver_.lock();
}

void ADMThreadedServiceResolver::setServiceInfo(std::shared_ptr<ADMServiceInfo> service)
{
    releaseKeeper();
    std::lock_guard guard(*this);
    handedOver_.reset();
    std::swap(serviceInfo_, service); // what it was goes with the argument, after the lock
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
