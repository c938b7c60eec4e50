#include "service/info/ServiceDevice.h"

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>

#include <thread>
#include <utility>

#include "foundation/logging/Guarded.h"

namespace dmf::internal {

/// One search. Whoever waits for it shares it; what it finds is kept if it is still the one under way.
struct ServiceDevice::Search {
    const std::thread::id thread = std::this_thread::get_id();
    bool isOver = false;
    std::shared_ptr<IDMDevice> found;
};

std::shared_ptr<IDMDevice> ServiceDevice::kept() const
{
    std::lock_guard guard(lock_);
    return kept_;
}

std::shared_ptr<IDMDevice> ServiceDevice::exchange(std::shared_ptr<IDMDevice> device)
{
    std::lock_guard guard(lock_);
    search_ = nullptr;
    std::swap(kept_, device);
    searched_.notify_all(); // who waits for a search may take what is kept now
    return device;
}

std::shared_ptr<IDMDevice> ServiceDevice::device(const Dictionary& spec)
{
    std::shared_ptr<Search> search; // goes, with a device that nobody keeps, after the lock
    std::unique_lock guard(lock_);
    if (kept_)
        return kept_;
    if (search_) {
        search = search_;
        if (search->thread == std::this_thread::get_id())
            return nullptr; // the search itself asks: if it waited for its end, it would never come to one
        searched_.wait(guard, [&] { return kept_ || search->isOver; });
        return kept_ ? kept_ : search->found;
    }
    search = search_ = std::make_shared<Search>();
    guard.unlock();
    auto found = locate(nullptr, spec);
    guard.lock();
    search->isOver = true;
    search->found = std::move(found);
    if (search_ == search) {
        search_ = nullptr;
        kept_ = search->found;
    }
    searched_.notify_all();
    return kept_ ? kept_ : search->found;
}

std::shared_ptr<IDMDevice> ServiceDevice::locate(const std::shared_ptr<IDMDeviceHandler>& handler,
                                                 const Dictionary& spec) const
{
    const auto made = guarded("ServiceInfo", "while a device was looked for", [&]() -> std::shared_ptr<IDMDevice> {
        std::shared_ptr<const Class> deviceClass;
        if (provider_) {
            deviceClass = provider_->implementorClassForProtocolWithName(IDMDevice::protocol().name());
        } else {
            const auto type = spec.string(kConnectionTypeProp);
            if (!type) // asking without one would find a plug-in for whatever type
                return nullptr;
            const Dictionary matching{{std::string(kDMServiceConnectionType), *type}};
            deviceClass = ADMPlugInManager::sharedManager()->implementorForProtocol(IDMDevice::protocol(), matching);
        }
        return deviceClass ? deviceClass->make<IDMDevice>(spec, handler) : nullptr;
    });
    return made.value_or(nullptr);
}

bool ServiceDevice::isReachable(const Dictionary& spec)
{
    const auto device = kept();
    if (!device)
        return this->device(spec) != nullptr;
    return guarded("ServiceInfo", "while a device was reached", [&] { return device->isReachable(); }).value_or(false);
}

Dictionary ServiceDevice::parametersOf(IDMDevice& device)
{
    return guarded("ServiceInfo", "while a device was asked who it is",
                   [&] { return device.retrieveParameters({}, nullptr); })
        .value_or(Dictionary());
}

} // namespace dmf::internal
