#include <dmf/ADMChannelFactoryImp.h>

#include <stdexcept>
#include <type_traits>

#include <gtest/gtest.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/platform/Error.h>

#include "support/FakeServiceInfo.h"
#include "support/ScriptedProvider.h"

namespace {
/// Supplies scripted channels under a class that the test makes up.
class ScriptedIOProvider : public ADMIOProvider {
public:
    std::shared_ptr<const dmf::Class> implementorClassForProtocolWithName(std::string_view name) const override
    {
        if (name != "ADMDuplexDataChannel")
            return nullptr;
        auto described = std::make_shared<dmf::Class>("ScriptedChannel", this);
        described->implements<ADMDuplexDataChannel>([](std::shared_ptr<ADMServiceInfo> info, std::string channelName) {
            return ADMDuplexDataChannelBase::initWithServiceInfo<ScriptedChannel>(std::move(info),
                                                                                  std::move(channelName));
        });
        return described;
    }
};
} // namespace

TEST(ChannelFactory, TakesTheChannelFromTheServicesProviderElseFromAPlugIn)
{
    const auto factory = ADMDataChannelFactory::init();
    const auto info = std::make_shared<FakeServiceInfo>();
    const auto byPlugIn = factory->newDuplexDataChannelWithServiceInfo(info, "Scan");
    ASSERT_TRUE(byPlugIn);
    EXPECT_EQ(byPlugIn->name(), "Scan");
    EXPECT_EQ(byPlugIn->serviceInfo(), info);
    EXPECT_FALSE(byPlugIn->isOpened());

    info->provider = std::make_shared<ScriptedIOProvider>();
    const auto byProvider = factory->newDuplexDataChannelWithServiceInfo(info, "Print");
    EXPECT_TRUE(std::dynamic_pointer_cast<ScriptedChannel>(byProvider));
    EXPECT_NE(byProvider, factory->newDuplexDataChannelWithServiceInfo(info, "Print"));

    EXPECT_FALSE(factory->newDuplexDataChannelWithServiceInfo(nullptr, "Print"));
    const auto unknown = std::make_shared<FakeServiceInfo>(nullptr, "Telex");
    EXPECT_FALSE(factory->newDuplexDataChannelWithServiceInfo(unknown, "Print"));
}

TEST(ChannelFactory, WhateverAProviderThrowsCountsAsNoChannel)
{
    struct Throwing : ADMIOProvider {
        bool isForeign = false;
        std::shared_ptr<const dmf::Class> implementorClassForProtocolWithName(std::string_view) const override
        {
            if (isForeign)
                throw 7;
            throw std::runtime_error("no");
        }
    };
    const auto factory = ADMDataChannelFactory::init();
    const auto info = std::make_shared<FakeServiceInfo>();
    const auto provider = std::make_shared<Throwing>();
    info->provider = provider;
    EXPECT_FALSE(factory->newDuplexDataChannelWithServiceInfo(info, "Print"));
    provider->isForeign = true;
    EXPECT_FALSE(factory->newDuplexDataChannelWithServiceInfo(info, "Print"));
}

TEST(ChannelFactory, TheFaceItselfServesSubclassesOnly)
{
    static_assert(!std::is_default_constructible_v<ADMDataChannelFactory>);
    struct Own : ADMDataChannelFactory {
        void stop() override {}
    } own;
    own.stop();
    EXPECT_THROW(own.scheduleDiscovery(), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)own.performDiscoveryWithTimeout(1), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)own.performDiscoveryWithTimeout(1, {}), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)own.supportedChannelNames(), dmf::UnrecognizedOperation);
}
