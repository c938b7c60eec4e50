#include <dmf/ADMServiceInfoImp.h>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/IDMDevice.h>

#include <utility>

#include "service/resolution/ResolveParameters.h"

// The part of a service info that is scheduled in a run loop and resolved to a device.

std::shared_ptr<ADMServiceInfoDelegate> ADMServiceInfoImp::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMServiceInfoImp::setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

void ADMServiceInfoImp::scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode)
{
    if (!runLoop)
        runLoop = dmf::RunLoop::current();
    std::lock_guard guard(lock_);
    const auto earlier = runLoop_.lock();
    if (earlier != runLoop) {
        for (const auto& kept : runLoopModes_) {
            if (earlier)
                earlier->removeSource(stubPort_, kept);
        }
        runLoopModes_.clear();
    }
    runLoop_ = runLoop;
    runLoopModes_.emplace(mode.value_or(dmf::kDefaultRunLoopMode));
    // A missing mode is kept as the default one, but the port is then registered nowhere: whoever leaves the mode open
    // turns the default mode anyway.
    if (mode)
        runLoop->addSource(stubPort_, *mode);
}

void ADMServiceInfoImp::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    std::lock_guard guard(lock_);
    const auto kept = runLoopModes_.find(mode);
    if (!runLoop || runLoop_.lock() != runLoop || kept == runLoopModes_.end())
        return;
    runLoop->removeSource(stubPort_, mode);
    runLoopModes_.erase(kept);
    if (runLoopModes_.empty())
        runLoop_.reset();
}

void ADMServiceInfoImp::resolveWithTimeout(double timeout)
{
    const auto& usual = dmf::internal::connectionTypeToParametersMap()[connectionType().value_or(std::string())];
    const auto* const parameters = usual.asDictionary();
    resolveServiceWithParameters(parameters ? *parameters : dmf::Dictionary(), timeout);
}

void ADMServiceInfoImp::resolveServiceWithParameters(const dmf::Dictionary& parameters, double timeout)
{
    std::uint64_t start = 0;
    {
        std::lock_guard guard(lock_);
        if (resolver_ || startUnderWay_ != 0)
            return;
        start = startUnderWay_ = ++starts_;
        const auto runLoop = runLoop_.lock();
        if (!runLoop || runLoop->hasEnded()) // the thread of one that has ended cannot be told anything
            scheduleInRunLoop(nullptr, dmf::kDefaultRunLoopMode);
    }
    // Whatever the delegate or a plug-in throws on the way, the next start is not refused.
    const struct Attempt {
        ADMServiceInfoImp& info;
        const std::uint64_t start;
        ~Attempt()
        {
            std::lock_guard guard(info.lock_);
            if (info.startUnderWay_ == start)
                info.startUnderWay_ = 0;
        }
    } attempt{*this, start};
    if (const auto told = delegate(); told && told->serviceInfoWillResolve)
        told->serviceInfoWillResolve(*this);
    const auto resolver = ADMServiceResolver::sharedFactory().newServiceResolverWithConnectionType(connectionType());
    if (resolver)
        startResolver(resolver, start, parameters, timeout);
}

void ADMServiceInfoImp::startResolver(const std::shared_ptr<ADMServiceResolver>& resolver, std::uint64_t start,
                                      const dmf::Dictionary& parameters, double timeout)
{
    std::shared_ptr<ADMServiceResolverDelegate> listener;
    std::shared_ptr<dmf::RunLoop> runLoop;
    std::vector<std::string> modes;
    {
        std::lock_guard guard(lock_);
        if (startUnderWay_ != start) // stopped meanwhile, by the delegate perhaps
            return;
        startUnderWay_ = 0;
        resolver_ = resolver;
        listener = resolverDelegate();
        runLoop = runLoop_.lock();
        modes.assign(runLoopModes_.begin(), runLoopModes_.end());
    }
    resolver->setDelegate(listener);
    resolver->resolveService(shared_from_this(), timeout, parameters, runLoop, modes);

    // Another thread may have called `stop` just before the start.
    if (!isCurrentResolver(*resolver)) {
        resolver->setDelegate(nullptr);
        resolver->stop();
    }
}

/// What resolvers call when they have finished; one that has been given up meanwhile is not listened to.
std::shared_ptr<ADMServiceResolverDelegate> ADMServiceInfoImp::resolverDelegate()
{
    std::lock_guard guard(lock_);
    if (!resolverDelegate_) {
        resolverDelegate_ = std::make_shared<ADMServiceResolverDelegate>();
        resolverDelegate_->serviceResolverDidFinish = [weak = weak_from_this()](ADMServiceResolver& resolver) {
            const auto self = weak.lock();
            if (const auto finished = self ? self->giveUp(&resolver) : nullptr)
                self->takeOverOutcome(*finished);
        };
    }
    return resolverDelegate_;
}

bool ADMServiceInfoImp::isCurrentResolver(const ADMServiceResolver& resolver) const
{
    std::lock_guard guard(lock_);
    return resolver_.get() == &resolver;
}

void ADMServiceInfoImp::serviceResolverDidFinish(ADMServiceResolver& resolver)
{
    const auto keptAlive = shared_from_this();
    const auto keptResolver = giveUp(&resolver);
    takeOverOutcome(resolver);
}

void ADMServiceInfoImp::takeOverOutcome(const ADMServiceResolver& resolver)
{
    const auto error = resolver.lastError();
    const auto info = resolver.resolvedInfo();
    const bool succeeded = error.empty() && namesAcceptedVendor(info);
    if (succeeded) {
        setResolvedSpec(info);
        setDevice(resolver.resolvedDevice());
    } else {
        setServiceState(2);
        setDevice(nullptr);
    }

    const auto told = delegate();
    if (succeeded && told && told->serviceInfoDidResolve)
        told->serviceInfoDidResolve(*this);
    else if (!succeeded && told && told->serviceInfoDidNotResolve)
        told->serviceInfoDidNotResolve(*this, error);

    if (succeeded)
        DMFLog("debug", "ServiceInfo: resolved service info for device '%@' device", uri());
    else if (error.empty())
        DMFLog("debug", "ServiceInfo: cannot resolve service info for device '%@' (error %@)", uri(), nullptr);
    else
        DMFLog("debug", "ServiceInfo: cannot resolve service info for device '%@' (error %@)", uri(), error);
}

void ADMServiceInfoImp::stop()
{
    (void)giveUp(nullptr);
}

/// Stops the resolver and lets go of it; with `only`, if it is still that one. Gives it where that was done.
std::shared_ptr<ADMServiceResolver> ADMServiceInfoImp::giveUp(const ADMServiceResolver* only)
{
    std::shared_ptr<ADMServiceResolver> resolver;
    {
        std::lock_guard guard(lock_);
        if (only && resolver_.get() != only)
            return nullptr;
        if (!only)
            startUnderWay_ = 0;
        resolver = std::exchange(resolver_, nullptr);
    }
    if (resolver) {
        resolver->setDelegate(nullptr);
        resolver->stop();
    }
    return resolver;
}
