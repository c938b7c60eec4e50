#include <dmf/ADMDataChannelFactory.h>

#include <dmf/ADMChannelFactoryImp.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/platform/Error.h>

namespace {
[[noreturn]] void unrecognized(std::string_view operation)
{
    throw dmf::UnrecognizedOperation("ADMDataChannelFactory", operation);
}
} // namespace

std::string_view ADMDataChannelFactory::interfaceID() noexcept
{
    return "DATA_CHANNEL";
}

std::shared_ptr<ADMDataChannelFactory> ADMDataChannelFactory::init()
{
    return std::make_shared<ADMChannelFactoryImp>();
}

ADMDataChannelFactory::ADMDataChannelFactory() = default;

ADMDataChannelFactory::~ADMDataChannelFactory() = default;

std::vector<std::string> ADMDataChannelFactory::supportedChannelNames() const
{
    unrecognized("supportedChannelNames");
}

std::shared_ptr<ADMDuplexDataChannel>
ADMDataChannelFactory::newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>&, std::string_view)
{
    unrecognized("newDuplexDataChannelWithServiceInfo:channelName:");
}

void ADMDataChannelFactory::setServiceNamesToDiscover(const std::vector<std::string>&)
{
    unrecognized("setServiceNamesToDiscover:");
}

void ADMDataChannelFactory::scheduleDiscoveryForServiceNames(const std::vector<std::string>&)
{
    unrecognized("scheduleDiscoveryForServiceNames:");
}

void ADMDataChannelFactory::scheduleDiscoveryForConnectionTypes(const std::vector<std::string>&,
                                                                const std::vector<std::string>&)
{
    unrecognized("scheduleDiscoveryForConnectionTypes:serviceNames:");
}

ADMDiscovery::Services ADMDataChannelFactory::performDiscoveryWithTimeout(double, const std::vector<std::string>&)
{
    unrecognized("performDiscoveryWithTimeout:serviceNames:");
}

ADMDiscovery::Services ADMDataChannelFactory::performDiscoveryForConnectionTypes(const std::vector<std::string>&,
                                                                                 double,
                                                                                 const std::vector<std::string>&)
{
    unrecognized("performDiscoveryForConnectionTypes:withTimeout:serviceNames:");
}
