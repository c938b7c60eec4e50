#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/Class.h>

#include "LpdDevice.h"
#include "LpdProvider.h"

DMF_REGISTER_CLASS(DMFLpdDevice)
{
    described.implements<IDMDevice>(&dmf::lpd::LpdDevice::initFromInfo);
}

DMF_REGISTER_CLASS(DMFLpdChannel)
{
    described.implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name) {
        return ADMDuplexDataChannelBase::initWithServiceInfo<dmf::lpd::LpdChannel>(std::move(serviceInfo),
                                                                                   std::move(name));
    });
}
