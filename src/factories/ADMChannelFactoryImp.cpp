#include <dmf/ADMChannelFactoryImp.h>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>

#include <utility>

#include "foundation/logging/AfterFork.h"
#include "foundation/logging/Guarded.h"
#include "plugins/GuardedMake.h"

using dmf::internal::guarded;

namespace {
std::shared_ptr<const dmf::Class> channelClassFor(const ADMServiceInfo& serviceInfo)
{
    const auto& protocol = ADMDuplexDataChannel::protocol();
    if (const auto provider = serviceInfo.ioProvider())
        return guarded("Factory", "while an I/O provider was asked for its class of channels",
                       [&] { return provider->implementorClassForProtocolWithName(protocol.name()); })
            .value_or(nullptr);
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
    if (!serviceInfo || dmf::internal::isRefusedAfterFork())
        return nullptr;
    return dmf::internal::guardedMake<ADMDuplexDataChannel>(channelClassFor(*serviceInfo), serviceInfo,
                                                            std::string(channelName));
}

std::set<std::string> ADMChannelFactoryImp::channelNames()
{
    std::lock_guard guard(mutex());
    if (!channelNames_) {
        const auto supported = supportedChannelNames();
        channelNames_.emplace(supported.begin(), supported.end());
    }
    return *channelNames_;
}

void ADMChannelFactoryImp::setChannelNames(std::set<std::string> names)
{
    std::lock_guard guard(mutex());
    channelNames_ = std::move(names);
}

std::vector<std::string> ADMChannelFactoryImp::channelNamesToDiscover()
{
    const auto names = channelNames();
    return {names.begin(), names.end()};
}

void ADMChannelFactoryImp::resetChannelNamesToDiscover(const std::vector<std::string>& names)
{
    {
        std::lock_guard guard(mutex());
        std::set<std::string> changed(names.begin(), names.end());
        if (changed == channelNames())
            return;
        channelNames_ = std::move(changed);
    }
    ADMDiscoveringFactory::resetChannelNamesToDiscover(channelNamesToDiscover());
}

void ADMChannelFactoryImp::setServiceNamesToDiscover(const std::vector<std::string>& names)
{
    resetChannelNamesToDiscover(names);
}

void ADMChannelFactoryImp::scheduleDiscoveryForServiceNames(const std::vector<std::string>& names)
{
    resetChannelNamesToDiscover(names);
    scheduleDiscovery();
}

void ADMChannelFactoryImp::scheduleDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                               const std::vector<std::string>& serviceNames)
{
    resetChannelNamesToDiscover(serviceNames);
    scheduleDiscoveryForConnectionTypes(connectionTypes);
}

ADMDiscovery::Services ADMChannelFactoryImp::performDiscoveryWithTimeout(double timeout,
                                                                         const std::vector<std::string>& names)
{
    resetChannelNamesToDiscover(names);
    return performDiscoveryWithTimeout(timeout);
}

ADMDiscovery::Services
ADMChannelFactoryImp::performDiscoveryForConnectionTypes(const std::vector<std::string>& connectionTypes,
                                                         double timeout, const std::vector<std::string>& serviceNames)
{
    resetChannelNamesToDiscover(serviceNames);
    return performDiscoveryForConnectionTypes(connectionTypes, timeout);
}

std::shared_ptr<dmf::RunLoop> ADMChannelFactoryImp::runLoop() const
{
    std::lock_guard guard(mutex());
    return runLoop_;
}

std::set<std::string> ADMChannelFactoryImp::modes() const
{
    std::lock_guard guard(mutex());
    return modes_;
}

void ADMChannelFactoryImp::setRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::set<std::string> modes)
{
    std::lock_guard guard(mutex());
    runLoop_ = std::move(runLoop);
    modes_ = std::move(modes);
}

void ADMChannelFactoryImp::scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop,
                                             std::optional<std::string_view> mode)
{
    std::lock_guard guard(mutex());
    if (runLoop != runLoop_)
        setRunLoop(runLoop, {});
    if (mode)
        modes_.emplace(*mode);
    ADMDiscoveringFactory::scheduleInRunLoop(std::move(runLoop), mode);
}

void ADMChannelFactoryImp::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop,
                                             std::optional<std::string_view> mode)
{
    std::lock_guard guard(mutex());
    if (mode && runLoop == runLoop_)
        modes_.erase(std::string(*mode));
    ADMDiscoveringFactory::removeFromRunLoop(runLoop, mode);
}
