#include <dmf/ADMGenericServiceResolver.h>

#include <dmf/ADMServiceInfo.h>

#include <utility>

#include "service/resolution/ResolverStart.h"

using dmf::internal::ResolverScope;
using dmf::internal::ResolverStart;

namespace {

/// What devices get as their handler: one that a device may keep for good without keeping the resolver, which holds
/// the device. It speaks for one start, and so cancels what that one began when a later one has taken its place.
class Handler final : public IDMDeviceHandler {
public:
    Handler(std::weak_ptr<ADMGenericServiceResolver> resolver, std::weak_ptr<ResolverStart> start)
        : resolver_(std::move(resolver)), start_(std::move(start))
    {
    }
    bool isCanceledForDevice(const IDMDevice* device) override
    {
        const auto resolver = resolver_.lock();
        const auto start = start_.lock();
        if (!resolver || !start)
            return true;
        const ResolverScope scope(*resolver, start);
        return resolver->isCanceledForDevice(device);
    }

private:
    const std::weak_ptr<ADMGenericServiceResolver> resolver_;
    const std::weak_ptr<ResolverStart> start_;
};

} // namespace

std::string ADMGenericServiceResolver::connectionType()
{
    return {};
}

std::shared_ptr<const dmf::Class> ADMGenericServiceResolver::resolverClass()
{
    static const auto* const generic = [] {
        auto made = std::make_shared<dmf::Class>(
            "ADMGenericServiceResolver", reinterpret_cast<const void*>(&ADMGenericServiceResolver::resolverClass));
        made->implements<ADMServiceResolver>([] { return std::make_shared<ADMGenericServiceResolver>(); });
        return new std::shared_ptr<const dmf::Class>(std::move(made));
    }();
    return *generic;
}

void ADMGenericServiceResolver::findService()
{
    const auto service = serviceInfo();
    const auto handler =
        std::make_shared<Handler>(std::static_pointer_cast<ADMGenericServiceResolver>(shared_from_this()), start());
    auto device = service ? service->locateDeviceWithHandler(handler) : nullptr;
    dmf::Dictionary info;
    if (device)
        info = device->retrieveParameters(parameters(), handler);

    // A device that is replaced goes after the lock: its end may wait for a thread that asks this resolver something.
    const auto replaced = resolvedDevice();
    std::lock_guard guard(*this);
    if (!isResolving()) // stopped or timed out meanwhile: what that left behind stands
        return;
    if (device)
        setResolvedInfo(std::move(info), std::move(device));
    else
        setLastError(errorWithDescription("Cannot resolve device under specified URI."));
}

bool ADMGenericServiceResolver::isCanceledForDevice(const IDMDevice*)
{
    return !isResolving();
}
