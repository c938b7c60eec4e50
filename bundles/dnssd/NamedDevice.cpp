#include "NamedDevice.h"

#include <chrono>
#include <utility>

#include <dmf/DMKeys.h>

namespace dmf::dnssd {

using socket::Clock;
using socket::Outcome;

namespace {
constexpr std::chrono::seconds kResolveLimit{5};
constexpr std::chrono::seconds kReachLimit{5};

/// The description with what the device says of itself, which is fresher than what was known of it.
Dictionary described(const Dictionary& spec, const Identity& identity)
{
    Dictionary result = spec;
    if (identity.vendor)
        result.set(kVendorNameProp, *identity.vendor);
    if (identity.model)
        result.set(kModelNameProp, *identity.model);
    return result;
}

Dictionary parametersIn(const Dictionary& spec)
{
    const auto* const params = spec[kParamsProp].asDictionary();
    return params ? *params : Dictionary();
}
} // namespace

std::shared_ptr<IDMDevice> NamedDevice::initFromInfo(const Dictionary& spec,
                                                     const std::shared_ptr<IDMDeviceHandler>& handler)
{
    auto service = ServiceName::fromParameters(parametersIn(spec));
    if (!service)
        return nullptr;
    const auto isCancelled = [&] { return handler && handler->isCanceledForDevice(nullptr); };
    Resolved resolved;
    if (resolve(*service, Clock::now() + kResolveLimit, isCancelled, resolved) != Outcome::done)
        return nullptr;
    auto connected = socket::connectTo(resolved.endpoint, Clock::now() + kReachLimit, isCancelled);
    if (connected.outcome != Outcome::done)
        return nullptr;
    const auto device =
        std::make_shared<NamedDevice>(*std::move(service), std::move(resolved), spec, std::move(connected.address));
    device->keep(std::move(connected.socket));
    return device;
}

NamedDevice::NamedDevice(ServiceName service, Resolved resolved, const Dictionary& spec, std::string address)
    : NetworkDevice(resolved.endpoint, described(spec, resolved.txt.identity()), std::move(address)),
      service_(std::move(service)), serialNumber_(resolved.txt.identity().serialNumber)
{
}

Outcome NamedDevice::findEndpoint(Clock::time_point deadline, const socket::CancelQuestion& isCancelled,
                                  socket::Endpoint& found)
{
    Resolved resolved;
    const auto outcome = resolve(service_, deadline, isCancelled, resolved);
    found = std::move(resolved.endpoint);
    return outcome;
}

Dictionary NamedDevice::retrieveParameters(const Dictionary& parameters, std::shared_ptr<IDMDeviceHandler> handler)
{
    auto result = NetworkDevice::retrieveParameters(parameters, std::move(handler));
    if (serialNumber_) {
        auto params = parametersIn(result);
        params.set(kSerialNumberParam, *serialNumber_);
        result.set(kParamsProp, std::move(params));
    }
    return result;
}

} // namespace dmf::dnssd
