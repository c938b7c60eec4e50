#include <dmf/ADMDiscoveringFactory.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/NotificationCenter.h>

#include <utility>

#include "foundation/logging/Guarded.h"

using dmf::NotificationCenter;
using dmf::internal::guarded;

namespace {
/// Which operations the delegate answers.
enum Flag : unsigned {
    kWillStart = 1,
    kDidStop = 2,
    kDidFindService = 4,
    kDidRemoveService = 8,
    kDidNotDiscover = 16,
    kFilterDidChange = 32,
};

unsigned flagsOf(const ADMDiscoveryDelegate& delegate)
{
    return (delegate.discoveryWillStart ? kWillStart : 0U) | (delegate.discoveryDidStop ? kDidStop : 0U) |
           (delegate.discoveryDidFindService ? kDidFindService : 0U) |
           (delegate.discoveryDidRemoveService ? kDidRemoveService : 0U) |
           (delegate.discoveryDidNotDiscover ? kDidNotDiscover : 0U) |
           (delegate.discoveryFilterDidChange ? kFilterDidChange : 0U);
}

// What a notification says besides its name.
dmf::Dictionary userInfoOf()
{
    return {};
}
dmf::Dictionary userInfoOf(const std::shared_ptr<ADMServiceInfo>& service)
{
    return {{std::string(kDMServiceInfoKey), dmf::Value::ofObject(service)}};
}
dmf::Dictionary userInfoOf(const dmf::Dictionary& error)
{
    return error;
}
} // namespace

ADMDiscoveringFactory::ADMDiscoveringFactory() = default;

ADMDiscoveringFactory::~ADMDiscoveringFactory()
{
    if (model_)
        model_->setDelegate(nullptr);
}

std::vector<std::string> ADMDiscoveringFactory::channelNamesToDiscover()
{
    throw dmf::UnrecognizedOperation("ADMDiscoveringFactory", "channelNamesToDiscover");
}

dmf::Dictionary ADMDiscoveringFactory::discoveryParameters()
{
    return {};
}

std::string ADMDiscoveringFactory::channelNameForProtocol(std::string_view protocolName)
{
    return ADMBaseDiscovery::channelNameForProtocol(protocolName);
}

std::shared_ptr<ADMBaseDiscovery> ADMDiscoveringFactory::discoveryModel()
{
    std::lock_guard guard(lock_);
    if (!model_) {
        const auto made = ADMBaseDiscovery::initWithChannelNames(channelNamesToDiscover());
        made->setParameters(discoveryParameters());
        model_ = made;
        listenToModel();
    }
    return model_;
}

std::shared_ptr<ADMBaseDiscovery> ADMDiscoveringFactory::model() const
{
    std::lock_guard guard(lock_);
    return model_;
}

/// Tells the delegate first, and then everybody.
template <class Operation, class... Arguments>
void ADMDiscoveringFactory::tell(unsigned flag, Operation operation, std::string_view notification,
                                 const Arguments&... arguments)
{
    const auto listener = delegateFor(flag);
    if (listener && (*listener).*operation) // which may have been emptied since the flags were taken
        guarded("Factory", "in a discovery delegate", [&] { ((*listener).*operation)(*this, arguments...); });
    guarded("Factory", "in an observer of a discovery", [&] {
        const void* const sender = this;
        NotificationCenter::defaultCenter().post(notification, sender, userInfoOf(arguments...));
    });
}

/// Makes the delegate through which the model reports, and gives it to the model. Called with the lock held.
void ADMDiscoveringFactory::listenToModel()
{
    // A report under way keeps the factory, and a factory that has gone hears none.
    const auto handOn = [weak = weak_from_this()](unsigned flag, auto operation, std::string_view notification) {
        return [weak, flag, operation, notification](ADMDiscovery&, const auto&... arguments) {
            if (const auto factory = weak.lock())
                factory->tell(flag, operation, notification, arguments...);
        };
    };
    using Delegate = ADMDiscoveryDelegate;
    modelReports_ = std::make_shared<Delegate>();
    modelReports_->discoveryWillStart =
        handOn(kWillStart, &Delegate::discoveryWillStart, kDMDiscoveryWillStartNotification);
    modelReports_->discoveryDidStop = handOn(kDidStop, &Delegate::discoveryDidStop, kDMDiscoveryDidStopNotification);
    modelReports_->discoveryFilterDidChange =
        handOn(kFilterDidChange, &Delegate::discoveryFilterDidChange, kDMDiscoveryFilterDidChangeNotification);
    modelReports_->discoveryDidFindService =
        handOn(kDidFindService, &Delegate::discoveryDidFindService, kDMDiscoveryDidFindServiceNotification);
    modelReports_->discoveryDidRemoveService =
        handOn(kDidRemoveService, &Delegate::discoveryDidRemoveService, kDMDiscoveryDidRemoveServiceNotification);
    modelReports_->discoveryDidNotDiscover =
        handOn(kDidNotDiscover, &Delegate::discoveryDidNotDiscover, kDMDiscoveryDidNotDiscoverNotification);
    model_->setDelegate(modelReports_);
}

void ADMDiscoveringFactory::resetChannelNamesToDiscover(const std::vector<std::string>& channelNames)
{
    std::shared_ptr<ADMBaseDiscovery> old;
    std::shared_ptr<ADMDiscoveryDelegate> oldReports;
    {
        std::lock_guard guard(lock_);
        old = std::exchange(model_,
                            channelNames.empty() ? nullptr : ADMBaseDiscovery::initWithChannelNames(channelNames));
        oldReports = std::exchange(modelReports_, nullptr);
        if (model_) {
            if (old) {
                model_->setFilter(old->filter());
                model_->setRunLoop(old->runLoop(), old->runLoopModes());
                model_->setConnectionsParametersToResolve(old->connectionsParametersToResolve());
                model_->setParameters(old->parameters());
            } else {
                model_->setParameters(discoveryParameters());
            }
            listenToModel();
        }
        if (!old)
            return;
        old->setDelegate(nullptr);
    }
    // Outside the lock, which a report under way may want: the end of the old model may wait for it.
    old->invalidate();
}

void ADMDiscoveringFactory::setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    if (delegate == delegate_.lock())
        return;
    delegate_ = delegate;
    delegateFlags_ = delegate ? flagsOf(*delegate) : 0;
}

std::shared_ptr<ADMDiscoveryDelegate> ADMDiscoveringFactory::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

std::shared_ptr<ADMDiscoveryDelegate> ADMDiscoveringFactory::delegateFor(unsigned flag) const
{
    std::lock_guard guard(lock_);
    return (delegateFlags_ & flag) != 0 ? delegate_.lock() : nullptr;
}

std::shared_ptr<ADMDiscoveryFilter> ADMDiscoveringFactory::filter() const
{
    const auto existing = model();
    return existing ? existing->filter() : nullptr; // a fresh model has none
}

void ADMDiscoveringFactory::setFilter(std::shared_ptr<ADMDiscoveryFilter> filter)
{
    discoveryModel()->setFilter(std::move(filter));
}

std::vector<std::string> ADMDiscoveringFactory::availableConnectionTypes() const
{
    return ADMBaseDiscovery::availableConnectionTypesToDiscover(); // whatever the model
}

void ADMDiscoveringFactory::setParametersToResolve(std::optional<dmf::Dictionary> parameters,
                                                   std::optional<std::string_view> connectionType)
{
    discoveryModel()->setParametersToResolve(std::move(parameters), connectionType);
}

void ADMDiscoveringFactory::scheduleDiscovery()
{
    discoveryModel()->scheduleDiscovery();
}

void ADMDiscoveringFactory::scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes)
{
    discoveryModel()->scheduleDiscoveryForConnectionTypes(connectionTypes);
}

ADMDiscovery::Services ADMDiscoveringFactory::performDiscoveryWithTimeout(double timeout)
{
    return discoveryModel()->performDiscoveryWithTimeout(timeout);
}

ADMDiscovery::Services
ADMDiscoveringFactory::performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                          double timeout)
{
    return discoveryModel()->performDiscoveryForConnectionTypes(connectionTypes, timeout);
}

void ADMDiscoveringFactory::stop()
{
    discoveryModel()->stop();
}

void ADMDiscoveringFactory::scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop,
                                              std::optional<std::string_view> mode)
{
    std::lock_guard guard(lock_);
    discoveryModel()->scheduleInRunLoop(std::move(runLoop), mode);
}

void ADMDiscoveringFactory::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop,
                                              std::optional<std::string_view> mode)
{
    std::lock_guard guard(lock_);
    discoveryModel()->removeFromRunLoop(runLoop, mode);
}
