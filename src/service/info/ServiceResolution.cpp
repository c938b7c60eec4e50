#include "service/info/ServiceResolution.h"

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "foundation/logging/Guarded.h"
#include "service/info/ServiceDevice.h"
#include "service/info/ServiceProperties.h"

namespace dmf::internal {
namespace {

constexpr std::chrono::seconds kLongestWaitForTheDelegate{1};

Dictionary errorThatSays(std::string_view why)
{
    return {{std::string(kDMErrorCode), -1}, {std::string(kDMErrorDescription), why}};
}

} // namespace

ServiceResolution::ServiceResolution(std::shared_ptr<ServiceProperties> properties,
                                     std::shared_ptr<ServiceDevice> device)
    : properties_(std::move(properties)), device_(std::move(device))
{
}

ServiceResolution::~ServiceResolution()
{
    if (stubPort_)
        stubPort_->invalidate();
}

std::shared_ptr<ADMServiceInfoDelegate> ServiceResolution::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ServiceResolution::setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

void ServiceResolution::schedule(std::shared_ptr<RunLoop> runLoop, std::optional<std::string_view> mode)
{
    if (!runLoop)
        runLoop = RunLoop::current();
    std::lock_guard guard(lock_);
    const auto earlier = runLoop_.lock();
    if (earlier != runLoop) {
        for (const auto& kept : modes_) {
            if (earlier)
                earlier->removeSource(stubPort_, kept);
        }
        modes_.clear();
    }
    if (!stubPort_)
        stubPort_ = RunLoopSource::create({});
    runLoop_ = runLoop;
    modes_.emplace(mode.value_or(kDefaultRunLoopMode));
    // A missing mode is kept as the default one, but the port is then registered nowhere: whoever leaves the mode open
    // turns the default mode anyway.
    if (mode)
        runLoop->addSource(stubPort_, *mode);
}

void ServiceResolution::unschedule(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    std::lock_guard guard(lock_);
    const auto kept = modes_.find(mode);
    if (!runLoop || runLoop_.lock() != runLoop || kept == modes_.end())
        return;
    runLoop->removeSource(stubPort_, mode);
    modes_.erase(kept);
    if (modes_.empty())
        runLoop_.reset();
}

void ServiceResolution::start(const std::shared_ptr<ADMServiceInfo>& service,
                              const std::shared_ptr<ADMServiceInfo>& standIn, const Dictionary& parameters,
                              double timeout)
{
    const auto attempt = std::make_shared<Attempt>();
    attempt->service = service;
    std::shared_ptr<ADMServiceInfoDelegate> told;
    std::shared_ptr<Attempt> forsaken;
    {
        std::lock_guard guard(lock_);
        if (attempt_ && !attempt_->isForsaken())
            return;
        forsaken = std::exchange(attempt_, attempt);
        told = delegate_.lock();
        const auto runLoop = runLoop_.lock();
        if (!runLoop || runLoop->hasEnded()) // the thread of one that has ended cannot be told anything
            schedule(nullptr, kDefaultRunLoopMode);
    }
    if (forsaken)
        giveUp(*forsaken->resolver);
    if (told && told->serviceInfoWillResolve)
        guarded("ServiceInfo", "in serviceInfoWillResolve", [&] { told->serviceInfoWillResolve(*service); });
    run(attempt, standIn, parameters, timeout);
}

/// From the announcement to the resolver's start.
void ServiceResolution::run(const std::shared_ptr<Attempt>& attempt, const std::shared_ptr<ADMServiceInfo>& standIn,
                            const Dictionary& parameters, double timeout)
{
    const auto type = properties_->text(kConnectionTypeProp);
    if (!type)
        return finish(attempt, {errorThatSays("Cannot resolve a service without a connection type."), {}, {}});
    const auto resolver = ADMServiceResolver::sharedFactory().newServiceResolverWithConnectionType(type);
    if (!resolver)
        return finish(attempt,
                      {errorThatSays("No resolver can be made for the connection type \"" + *type + "\"."), {}, {}});

    const auto listener = std::make_shared<ADMServiceResolverDelegate>();
    listener->serviceResolverDidFinish = [weak = weak_from_this(), about = std::weak_ptr(attempt)](auto& finished) {
        const auto self = weak.lock();
        const auto current = about.lock();
        if (self && current)
            self->finish(current, outcomeOf(finished));
    };
    std::shared_ptr<RunLoop> runLoop;
    std::vector<std::string> modes;
    {
        std::lock_guard guard(lock_);
        if (attempt_ != attempt) // stopped meanwhile, by the delegate perhaps
            return;
        attempt->resolver = resolver;
        attempt->listener = listener;
        attempt->runLoop = runLoop_;
        runLoop = runLoop_.lock();
        modes.assign(modes_.begin(), modes_.end());
    }
    const bool isStarted = guarded("ServiceInfo", "while a resolver was started", [&] {
        resolver->setDelegate(listener);
        resolver->resolveService(standIn, timeout, parameters, runLoop, modes);
    });
    if (!isStarted)
        return finish(attempt, {errorThatSays("The resolver has failed."), {}, {}});
    // Another thread may have called `stop` just before the start.
    if (!isUnderWay(attempt))
        giveUp(*resolver);
}

bool ServiceResolution::isUnderWay(const std::shared_ptr<Attempt>& attempt) const
{
    std::lock_guard guard(lock_);
    return attempt_ == attempt;
}

bool ServiceResolution::Attempt::isForsaken() const
{
    if (!resolver)
        return false; // it is still being announced
    const auto loop = runLoop.lock();
    return !loop || loop->hasEnded();
}

bool ServiceResolution::Outcome::isSuccess() const
{
    return error.empty() && ServiceProperties::namesAcceptedVendor(info);
}

ServiceResolution::Outcome ServiceResolution::outcomeOf(const ADMServiceResolver& resolver)
{
    auto outcome = guarded("ServiceInfo", "while a resolver was asked for its outcome", [&] {
        return Outcome{resolver.lastError(), resolver.resolvedInfo(), resolver.resolvedDevice()};
    });
    return outcome ? *std::move(outcome) : Outcome{errorThatSays("The resolver has failed."), {}, {}};
}

void ServiceResolution::resolverDidFinish(const ADMServiceResolver& resolver)
{
    std::shared_ptr<Attempt> attempt;
    {
        std::lock_guard guard(lock_);
        if (attempt_ && attempt_->resolver.get() == &resolver)
            attempt = attempt_;
    }
    if (attempt)
        finish(attempt, outcomeOf(resolver));
}

/// What an attempt came to is taken over, and told, if it is still the one under way.
void ServiceResolution::finish(const std::shared_ptr<Attempt>& attempt, Outcome outcome)
{
    const auto service = attempt->service.lock();
    if (!service) // nobody is there to hear of it
        return;
    const bool succeeded = outcome.isSuccess();
    std::shared_ptr<ADMServiceInfoDelegate> told;
    std::shared_ptr<IDMDevice> replaced; // goes after the lock: its end may take its time
    {
        std::lock_guard guard(lock_);
        if (attempt_ != attempt)
            return;
        attempt_ = nullptr;
        if (succeeded)
            properties_->setResolved(outcome.info);
        else
            properties_->setState(2);
        replaced = device_->exchange(succeeded ? outcome.device : nullptr);
        told = delegate_.lock();
        taken_.push_back(attempt);
    }
    if (attempt->resolver)
        giveUp(*attempt->resolver);
    {
        std::lock_guard guard(lock_);
        if (std::erase(taken_, attempt) == 0)
            return; // stopped meanwhile
        telling_.push_back(std::this_thread::get_id());
    }
    if (told)
        tell(*service, *told, outcome);
    {
        std::lock_guard guard(lock_);
        telling_.erase(std::ranges::find(telling_, std::this_thread::get_id()));
        told_.notify_all();
    }
    // Only a known URI is shown: to make one, the device would have to be looked for, and this is the client's thread.
    const auto uri = properties_->text(kURIProp);
    if (succeeded) {
        DMFLog("debug", "ServiceInfo: resolved service info for device '%@' device", uri);
        return;
    }
    if (outcome.error.empty())
        DMFLog("debug", "ServiceInfo: cannot resolve service info for device '%@' (error %@)", uri, nullptr);
    else
        DMFLog("debug", "ServiceInfo: cannot resolve service info for device '%@' (error %@)", uri, outcome.error);
}

void ServiceResolution::tell(ADMServiceInfo& service, const ADMServiceInfoDelegate& delegate, const Outcome& outcome)
{
    if (outcome.isSuccess() && delegate.serviceInfoDidResolve)
        guarded("ServiceInfo", "in serviceInfoDidResolve", [&] { delegate.serviceInfoDidResolve(service); });
    else if (!outcome.isSuccess() && delegate.serviceInfoDidNotResolve)
        guarded("ServiceInfo", "in serviceInfoDidNotResolve",
                [&] { delegate.serviceInfoDidNotResolve(service, outcome.error); });
}

void ServiceResolution::stop()
{
    std::shared_ptr<Attempt> attempt;
    {
        std::lock_guard guard(lock_);
        attempt = std::exchange(attempt_, nullptr);
    }
    if (attempt && attempt->resolver)
        giveUp(*attempt->resolver);
    // An outcome that was taken over but is not being told yet is not told any more; one that is is waited for.
    std::unique_lock guard(lock_);
    taken_.clear();
    told_.wait_for(guard, kLongestWaitForTheDelegate, [this] { return !isToldElsewhere(); });
}

bool ServiceResolution::isToldElsewhere() const
{
    return std::ranges::any_of(telling_, [](auto thread) { return thread != std::this_thread::get_id(); });
}

void ServiceResolution::giveUp(ADMServiceResolver& resolver)
{
    guarded("ServiceInfo", "while a resolver was stopped", [&] {
        resolver.setDelegate(nullptr);
        resolver.stop();
    });
}

} // namespace dmf::internal
