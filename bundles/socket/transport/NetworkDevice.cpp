#include "NetworkDevice.h"

#include <dmf/DMKeys.h>

namespace dmf::socket {

namespace {
constexpr std::chrono::seconds kSearchLimit{5};
constexpr std::chrono::seconds kReachLimit{2};
} // namespace

std::shared_ptr<NetworkDevice> NetworkDevice::reach(Endpoint endpoint, const Dictionary& spec,
                                                    const std::shared_ptr<IDMDeviceHandler>& handler)
{
    const auto isCancelled = [&] { return handler && handler->isCanceledForDevice(nullptr); };
    auto connected = connectTo(endpoint, Clock::now() + kSearchLimit, isCancelled);
    if (connected.outcome != Outcome::done)
        return nullptr;
    const auto device = std::make_shared<NetworkDevice>(std::move(endpoint), spec, connected.address);
    device->keep(std::move(connected.socket));
    return device;
}

NetworkDevice::NetworkDevice(Endpoint endpoint, const Dictionary& spec, std::string address)
    : endpoint_(std::move(endpoint))
{
    for (const auto key : {kVendorNameProp, kModelNameProp, kDeviceNameProp})
        if (auto name = spec.string(key))
            identity_.set(key, std::move(*name));
    if (!identity_.contains(kDeviceNameProp))
        identity_.set(kDeviceNameProp, endpoint_.hostName.empty() ? address : endpoint_.hostName);

    Dictionary params;
    params.set(kIPPortParam, std::to_string(endpoint_.port));
    if (!endpoint_.hostName.empty())
        params.set(kHostNameParam, endpoint_.hostName);
    if (!address.empty()) {
        params.set(kIPAddressParam, address);
        params.set(kAllIPAddressesParam, Array{address});
    }
    identity_.set(kParamsProp, std::move(params));
}

Outcome NetworkDevice::findEndpoint(Clock::time_point, const CancelQuestion&, Endpoint& found)
{
    found = endpoint_;
    return Outcome::done;
}

Connected NetworkDevice::connectAnew(Clock::time_point deadline, const CancelQuestion& isCancelled)
{
    Endpoint endpoint;
    if (const auto outcome = findEndpoint(deadline, isCancelled, endpoint); outcome != Outcome::done)
        return {outcome, {}, {}};
    return connectTo(endpoint, deadline, isCancelled);
}

Connected NetworkDevice::connect(Clock::time_point deadline, const CancelQuestion& isCancelled)
{
    if (auto held = held_.take())
        return {Outcome::done, std::move(held), {}};
    return connectAnew(deadline, isCancelled);
}

bool NetworkDevice::isReachable()
{
    {
        std::lock_guard guard(lock_);
        if (!use_.expired())
            return true;
    }
    if (held_.stands())
        return true;
    auto connected = connectAnew(Clock::now() + kReachLimit, {});
    if (connected.outcome != Outcome::done)
        return false;
    keep(std::move(connected.socket));
    return true;
}

Dictionary NetworkDevice::retrieveParameters(const Dictionary&, std::shared_ptr<IDMDeviceHandler>)
{
    return identity_;
}

NetworkDevice::Use NetworkDevice::beginUse()
{
    std::lock_guard guard(lock_);
    auto use = use_.lock();
    if (!use)
        use_ = use = std::make_shared<char>();
    return use;
}

} // namespace dmf::socket
