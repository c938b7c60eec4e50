#include <dmf/platform/Class.h>

#include "discovery/Discovery.h"

DMF_REGISTER_CLASS(DMFUSBDiscovery)
{
    described.implements<IDMServiceDiscovery>(&dmf::usb::Discovery::initWithServiceName);
}
