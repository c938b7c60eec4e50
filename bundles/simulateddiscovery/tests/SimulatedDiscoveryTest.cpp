#include <gtest/gtest.h>

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>

#include "support/ChannelDelegate.h"
#include "support/Stopwatch.h"

using dmf::Dictionary;

namespace {
const std::vector<std::string> kTypes{"Simulated"};

std::shared_ptr<ADMBaseDiscovery> discoveryBy(const Dictionary& script, const std::string& channel = "Print")
{
    const auto discovery = ADMBaseDiscovery::initWithChannelNames({channel});
    discovery->setParameters({{"simulation", script}});
    return discovery;
}
} // namespace

TEST(SimulatedDiscovery, FindsTheSampleModelsAndTheirChannelsWork)
{
    const auto factory = ADMDataChannelFactory::init();
    const auto found = factory->performDiscoveryForConnectionTypes(kTypes, 1, {"Scan"});
    ASSERT_TRUE(found);
    ASSERT_EQ(found->size(), 3U);
    const auto& service = found->front();
    EXPECT_EQ(service->deviceClass(), kScannerDeviceClass);
    EXPECT_EQ(service->connectionType(), "Simulated");
    EXPECT_EQ(service->serviceState(), 1U);
    const auto channel = factory->newDuplexDataChannelWithServiceInfo(service, "Scan");
    ASSERT_TRUE(channel && channel->open());
    EXPECT_EQ(written(*channel, dmf::Data::fromText("hello")), "done");
    EXPECT_EQ(received(*channel, 5), "hello");
    channel->close();
}

TEST(SimulatedDiscovery, TenThousandServicesComeAndGo)
{
    const auto discovery = discoveryBy({{"count", 10000}, {"burst", 2500}, {"interval", 0}});
    const auto found = discovery->performDiscoveryForConnectionTypes(kTypes, 2);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->size(), 10000U);

    const auto flapping =
        discoveryBy({{"count", 50}, {"duplicates", 3}, {"flaps", 20}, {"withdraw", true}, {"interval", 0}});
    std::size_t finds = 0, losses = 0;
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    delegate->discoveryDidFindService = [&](auto&, const auto&) { ++finds; };
    delegate->discoveryDidRemoveService = [&](auto&, const auto&) { ++losses; };
    flapping->setDelegate(delegate);
    const auto left = flapping->performDiscoveryForConnectionTypes(kTypes, 1);
    EXPECT_EQ(finds, 50U * 3 * 21);
    EXPECT_EQ(losses, finds);
    EXPECT_TRUE(left->empty());
}

TEST(SimulatedDiscovery, FailsHangsAndKeepsSilentAsItsScriptSays)
{
    const auto failing = discoveryBy({{"startStatus", 9}});
    EXPECT_TRUE(failing->performDiscoveryForConnectionTypes(kTypes, 0.05)->empty());
    EXPECT_EQ(failing->sources()[0].state, ADMDiscoverySource::State::failed);
    EXPECT_EQ(failing->sources()[0].error[kDMErrorCode], 9);

    const auto silent = discoveryBy({{"silent", true}, {"trouble", "nobody answers"}});
    EXPECT_TRUE(silent->performDiscoveryForConnectionTypes(kTypes, 0.05)->empty());
    EXPECT_EQ(silent->sources()[0].error[kDMErrorDescription], "nobody answers");

    const auto slow = discoveryBy({{"startDelay", 0.3}});
    const Stopwatch watch;
    EXPECT_EQ(slow->performDiscoveryForConnectionTypes(kTypes, 1)->size(), 3U);
    EXPECT_LT(watch.seconds(), 15);

    const auto odd = discoveryBy({{"services", dmf::Array{"nonsense", 5, "other://x",
                                                          "simulated://QLDMF/v=1&"
                                                          "connectionType=Simulated&vendorName=QL"}}});
    EXPECT_EQ(odd->performDiscoveryForConnectionTypes(kTypes, 1)->size(), 1U);
}
