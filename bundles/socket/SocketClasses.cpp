#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Class.h>

#include "transport/NetworkDevice.h"
#include "transport/SocketChannel.h"

using dmf::socket::Endpoint;
using dmf::socket::NetworkDevice;

DMF_REGISTER_CLASS(DMFSocketDevice)
{
    described.implements<IDMDevice>([](const dmf::Dictionary& spec,
                                       const std::shared_ptr<IDMDeviceHandler>& handler) -> std::shared_ptr<IDMDevice> {
        const auto* const params = spec[kParamsProp].asDictionary();
        auto endpoint = params ? Endpoint::fromParameters(*params) : std::nullopt;
        return endpoint ? NetworkDevice::reach(std::move(*endpoint), spec, handler) : nullptr;
    });
}

DMF_REGISTER_CLASS(DMFSocketChannel)
{
    described.implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name) {
        return ADMDuplexDataChannelBase::initWithServiceInfo<dmf::socket::SocketChannel>(std::move(serviceInfo),
                                                                                         std::move(name));
    });
}
