#include <dmf/ADMDataChannelFactory.h>

#include <dmf/ADMChannelFactoryImp.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/platform/Error.h>

std::string_view ADMDataChannelFactory::interfaceID() noexcept
{
    return "DATA_CHANNEL";
}

std::shared_ptr<ADMDataChannelFactory> ADMDataChannelFactory::init()
{
    return std::make_shared<ADMChannelFactoryImp>();
}

ADMDataChannelFactory::~ADMDataChannelFactory() = default;

std::vector<std::string> ADMDataChannelFactory::supportedChannelNames() const
{
    throw dmf::UnrecognizedOperation("ADMDataChannelFactory", "supportedChannelNames");
}

std::shared_ptr<ADMDuplexDataChannel>
ADMDataChannelFactory::newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>&, std::string_view)
{
    throw dmf::UnrecognizedOperation("ADMDataChannelFactory", "newDuplexDataChannelWithServiceInfo:channelName:");
}
