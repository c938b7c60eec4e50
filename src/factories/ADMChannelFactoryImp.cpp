#include <dmf/ADMChannelFactoryImp.h>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>

namespace {
std::shared_ptr<const dmf::Class> channelClassFor(const ADMServiceInfo& serviceInfo)
{
    const auto& protocol = ADMDuplexDataChannel::protocol();
    if (const auto provider = serviceInfo.ioProvider())
        return provider->implementorClassForProtocolWithName(protocol.name());
    // Without a type nothing is asked for: an empty dictionary would match every plug-in.
    const auto type = serviceInfo.connectionType();
    if (!type)
        return nullptr;
    const dmf::Dictionary matching{{std::string(kDMServiceConnectionType), *type}};
    return ADMPlugInManager::sharedManager()->implementorForProtocol(protocol, matching);
}
} // namespace

ADMChannelFactoryImp::ADMChannelFactoryImp() = default;
ADMChannelFactoryImp::~ADMChannelFactoryImp() = default;

std::vector<std::string> ADMChannelFactoryImp::supportedChannelNames() const
{
    std::vector<std::string> names;
    for (const auto name : {kDMPrintChannelName, kDMConfigUploadChannelName, kDMConfigDownloadChannelName,
                            kDMScanChannelName, kDMEchoChannelName, kDMEWSChannelName})
        names.emplace_back(name);
    return names;
}

std::shared_ptr<ADMDuplexDataChannel>
ADMChannelFactoryImp::newDuplexDataChannelWithServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo,
                                                          std::string_view channelName)
{
    if (!serviceInfo)
        return nullptr;
    const auto channelClass = channelClassFor(*serviceInfo);
    return channelClass ? channelClass->make<ADMDuplexDataChannel>(serviceInfo, std::string(channelName)) : nullptr;
}
