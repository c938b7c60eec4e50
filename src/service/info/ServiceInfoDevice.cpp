#include <dmf/ADMServiceInfoImp.h>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/IDMDevice.h>

#include <exception>
#include <utility>

// How a service info comes to its device, and what it asks of it. Transports are other people's code: what they throw
// is logged and counts as a failure.

namespace {

template <class Work>
auto guarded(const char* what, Work work) -> decltype(work())
{
    try {
        return work();
    } catch (const std::exception& error) {
        DMFLog("errors", "ServiceInfo: exception '%@' while a device %@", error, what);
    } catch (...) {
        DMFLog("errors", "ServiceInfo: unknown exception while a device %@", what);
    }
    return {};
}

} // namespace

std::shared_ptr<ADMIOProvider> ADMServiceInfoImp::ioProvider() const
{
    std::lock_guard guard(lock_);
    return ioProvider_;
}

std::shared_ptr<IDMDevice> ADMServiceInfoImp::device()
{
    const auto spec = container();
    std::lock_guard guard(deviceLock_);
    if (!device_)
        device_ = locateDeviceWithHandlerDeviceSpec(nullptr, spec);
    return device_;
}

void ADMServiceInfoImp::setDevice(std::shared_ptr<IDMDevice> device)
{
    std::lock_guard guard(deviceLock_);
    std::swap(device_, device); // what it was goes with the argument, after the lock
}

std::shared_ptr<IDMDevice> ADMServiceInfoImp::locateDeviceWithHandler(std::shared_ptr<IDMDeviceHandler> handler)
{
    return locateDeviceWithHandlerDeviceSpec(handler, container());
}

std::shared_ptr<IDMDevice>
ADMServiceInfoImp::locateDeviceWithHandlerDeviceSpec(const std::shared_ptr<IDMDeviceHandler>& handler,
                                                     const dmf::Dictionary& deviceSpec)
{
    return guarded("was looked for", [&]() -> std::shared_ptr<IDMDevice> {
        std::shared_ptr<const dmf::Class> deviceClass;
        if (const auto provider = ioProvider()) {
            deviceClass = provider->implementorClassForProtocolWithName(IDMDevice::protocol().name());
        } else {
            const auto type = deviceSpec.string(kConnectionTypeProp);
            if (!type) // asking without one would find a plug-in for whatever type
                return nullptr;
            const dmf::Dictionary matching{{std::string(kDMServiceConnectionType), *type}};
            deviceClass = ADMPlugInManager::sharedManager()->implementorForProtocol(IDMDevice::protocol(), matching);
        }
        return deviceClass ? deviceClass->make<IDMDevice>(deviceSpec, handler) : nullptr;
    });
}

bool ADMServiceInfoImp::isReachable()
{
    std::shared_ptr<IDMDevice> kept;
    {
        std::lock_guard guard(deviceLock_);
        kept = device_;
    }
    if (!kept)
        return device() != nullptr;
    return guarded("was reached", [&] { return kept->isReachable(); });
}

dmf::Dictionary ADMServiceInfoImp::retrievedParameters(IDMDevice& device)
{
    return guarded("was asked who it is", [&] { return device.retrieveParameters({}, nullptr); });
}
