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
    const auto connected = connectTo(endpoint, Clock::now() + kSearchLimit, isCancelled);
    if (connected.outcome != Outcome::done)
        return nullptr;
    return std::make_shared<NetworkDevice>(std::move(endpoint), spec, connected.address);
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

Connected NetworkDevice::connect(Clock::time_point deadline, const CancelQuestion& isCancelled)
{
    Endpoint endpoint;
    if (const auto outcome = findEndpoint(deadline, isCancelled, endpoint); outcome != Outcome::done)
        return {outcome, {}, {}};
    return connectTo(endpoint, deadline, isCancelled);
}

bool NetworkDevice::isReachable()
{
    {
        std::lock_guard guard(lock_);
        if (!use_.expired())
            return true;
    }
    return connect(Clock::now() + kReachLimit, {}).outcome == Outcome::done;
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
