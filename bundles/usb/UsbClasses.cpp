#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/Class.h>

#include "discovery/Discovery.h"
#include "transport/UsbDevice.h"
#include "transport/UsbProvider.h"

DMF_REGISTER_CLASS(DMFUSBDiscovery)
{
    described.implements<IDMServiceDiscovery>(&dmf::usb::Discovery::initWithServiceName);
}

DMF_REGISTER_CLASS(DMFUSBDevice)
{
    described.implements<IDMDevice>(&dmf::usb::UsbDevice::initFromInfo);
}

DMF_REGISTER_CLASS(DMFUSBChannel)
{
    described.implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name) {
        return ADMDuplexDataChannelBase::initWithServiceInfo<dmf::usb::UsbChannel>(std::move(serviceInfo),
                                                                                   std::move(name));
    });
}
