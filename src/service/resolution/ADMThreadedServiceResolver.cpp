#include <dmf/ADMThreadedServiceResolver.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Error.h>

#include <cmath>
#include <utility>

#include "foundation/logging/Guarded.h"
#include "platform/host/Host.h"
#include "platform/host/Thread.h"
#include "service/resolution/ResolverStart.h"

using dmf::internal::ResolverScope;
using dmf::internal::ResolverStart;

namespace {

constexpr int kCompletionMessage = 5;
constexpr double kSecondsBetweenAttempts = 1.0;
constexpr std::string_view kNotFound = "Cannot resolve device under specified URI.";

bool isServed(const std::shared_ptr<dmf::RunLoop>& runLoop)
{
    return runLoop && !runLoop->hasEnded();
}

} // namespace

ADMThreadedServiceResolver::ADMThreadedServiceResolver() = default;

ADMThreadedServiceResolver::~ADMThreadedServiceResolver() = default;

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
    const ResolverScope scope(*this, start());
    ADMBaseServiceResolver::resolveService(std::move(service), timeout, parameters, runLoop, modes);
    const auto start = this->start();
    const auto queue = queueFor(start);
    {
        std::lock_guard guard(*this);
        start->deadline = dmf::internal::Host::current().steadyNow() + (std::isnan(timeout) ? 0 : timeout);
        start->queue = queue;
        start->hasWorker = true;
    }
    for (const auto& mode : modes)
        queue->scheduleInRunLoop(runLoop, mode);
    setupTimer();
    startWorker(start);
}

/// The queue by which the start tells that it has ended.
std::shared_ptr<ADMMessageQueue> ADMThreadedServiceResolver::queueFor(const std::shared_ptr<ResolverStart>& start)
{
    const auto weak = std::weak_ptr(std::static_pointer_cast<ADMThreadedServiceResolver>(shared_from_this()));
    return ADMMessageQueue::initWithInvocation(
        [weak, weakStart = std::weak_ptr(start)](ADMMessageQueue& queue, const dmf::Value& object) {
            const auto self = weak.lock();
            const auto about = weakStart.lock();
            if (!self || !about || !self->isToBeTold(*about))
                return;
            const ResolverScope scope(*self, about);
            self->messageQueueHasObject(queue, object);
        });
}

void ADMThreadedServiceResolver::startWorker(const std::shared_ptr<ResolverStart>& start)
{
    const auto weak = std::weak_ptr(std::static_pointer_cast<ADMThreadedServiceResolver>(shared_from_this()));
    const auto status = dmf::internal::startThread("dmf-resolver", dmf::internal::ThreadForm::detached,
                                                   [weak, start] { serviceResolving(weak, start); });
    if (status == 0)
        return;
    DMFLog("errors", "ServiceInfo: cannot start a thread to resolve a service (error %d)", status);
    removeTimer();
    std::lock_guard guard(*this);
    start->hasWorker = false;
    setLastError(errorWithDescription(kNotFound));
    setResolving(false);
    start->queue->addObject(kCompletionMessage); // there is nothing to wait for
}

void ADMThreadedServiceResolver::timeoutDidFire()
{
    const auto start = this->start();
    std::lock_guard guard(*this);
    if (!isResolving())
        return;
    ADMBaseServiceResolver::timeoutDidFire();
    start->betweenAttempts.end();
    if (start->queue)
        start->queue->addObject(kCompletionMessage);
}

void ADMThreadedServiceResolver::findService()
{
    throw dmf::UnrecognizedOperation("ADMThreadedServiceResolver", "findService");
}

/// The worker. It keeps the resolver alive while it works for it, and only then: whoever lets go of a resolver need not
/// wait for a worker that sleeps.
void ADMThreadedServiceResolver::serviceResolving(const std::weak_ptr<ADMThreadedServiceResolver>& weakResolver,
                                                  const std::shared_ptr<ResolverStart>& start)
{
    for (;;) {
        if (const auto resolver = weakResolver.lock(); !resolver || !resolver->attempt(start))
            return;
        start->betweenAttempts.take(kSecondsBetweenAttempts);
    }
}

/// One attempt, unless it would be in vain; whether another is to follow. An error of an earlier attempt stays on
/// purpose: once an attempt has failed, the resolution ends by its time-out.
bool ADMThreadedServiceResolver::attempt(const std::shared_ptr<ResolverStart>& start)
{
    const ResolverScope scope(*this, start);
    {
        std::lock_guard guard(*this);
        if (!isWorthAnAttempt(*start)) {
            start->hasWorker = false;
            return false;
        }
    }
    const bool returned = dmf::internal::guarded("ServiceInfo", "while resolving a service", [this] { findService(); });

    std::lock_guard guard(*this);
    if (!returned && isResolving())
        setLastError(errorWithDescription(kNotFound));
    if (!start->lastError.empty())
        return true;
    start->hasWorker = false;
    if (isResolving()) {
        setResolving(false);
        start->queue->addObject(kCompletionMessage);
    }
    return false;
}

/// A failed attempt leaves the time-out as the only outcome, and only the run loop can bring that about. So with the
/// time the work is over as well, be the run loop turned or not, and with the run loop's thread. The first attempt is
/// made in any case.
bool ADMThreadedServiceResolver::isWorthAnAttempt(const ResolverStart& start) const
{
    if (!isResolving())
        return false;
    return start.lastError.empty() ||
           (isServed(start.runLoop.lock()) && dmf::internal::Host::current().steadyNow() < start.deadline);
}

bool ADMThreadedServiceResolver::isValid() const
{
    const auto start = this->start();
    std::lock_guard guard(*this);
    return start->hasWorker;
}

std::shared_ptr<ADMServiceInfo> ADMThreadedServiceResolver::serviceInfo() const
{
    const auto start = this->start();
    std::lock_guard guard(*this);
    return start->service;
}

void ADMThreadedServiceResolver::setServiceInfo(std::shared_ptr<ADMServiceInfo> service)
{
    const auto start = this->start();
    std::lock_guard guard(*this);
    std::swap(start->service, service); // what it was goes with the argument, after the lock
}

void ADMThreadedServiceResolver::messageQueueHasObject(ADMMessageQueue&, const dmf::Value& object)
{
    const auto* const number = object.asNumber();
    if (number && number->int64Value() == kCompletionMessage)
        tellDelegate();
}
