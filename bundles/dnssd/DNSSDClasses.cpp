#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/Class.h>

#include "Discovery.h"
#include "NamedDevice.h"
#include "transport/SocketChannel.h"

DMF_REGISTER_CLASS(DMFDNSSDDiscovery)
{
    described.implements<IDMServiceDiscovery>(&dmf::dnssd::Discovery::initWithServiceName);
}

DMF_REGISTER_CLASS(DMFDNSSDDevice)
{
    described.implements<IDMDevice>(&dmf::dnssd::NamedDevice::initFromInfo);
}

DMF_REGISTER_CLASS(DMFDNSSDChannel)
{
    described.implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name) {
        return ADMDuplexDataChannelBase::initWithServiceInfo<dmf::socket::SocketChannel>(std::move(serviceInfo),
                                                                                         std::move(name));
    });
}
