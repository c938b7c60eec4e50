#include <dmf/ADMChannelFactoryImp.h>

#include <gtest/gtest.h>

#include <dmf/ADMPlugInManager.h>

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
