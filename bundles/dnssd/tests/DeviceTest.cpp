#include "../NamedDevice.h"

#include <atomic>

#include <gmock/gmock.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include "../../socket/tests/Peer.h"
#include "support/AvahiFixture.h"
#include "support/ChannelDelegate.h"

using dmf::Data;
using dmf::dnssd::Resolved;
using dmf::dnssd::ServiceName;
using dmf::socket::Clock;
using dmf::socket::Outcome;
using namespace std::chrono_literals;
using testing::Contains;

namespace {
class DnssdDevice : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto problem = AvahiFixture::problem(); !problem.empty())
            GTEST_SKIP() << problem;
        avahi = std::make_unique<AvahiFixture>();
    }

    std::unique_ptr<AvahiFixture> avahi;
};

std::shared_ptr<ADMServiceInfoImp> serviceOf(const ServiceName& service)
{
    return ADMServiceInfoImp::serviceInfoWithURI(*service.uri(), kPrinterDeviceClass);
}

std::shared_ptr<ADMDuplexDataChannel> channelTo(const std::shared_ptr<ADMServiceInfo>& service)
{
    const auto found = ADMPlugInManager::sharedManager()->implementorForProtocol(
        ADMDuplexDataChannel::protocol(), {{std::string(kDMServiceConnectionType), "Rendezvous"}});
    return found ? found->make<ADMDuplexDataChannel>(service, "Print") : nullptr;
}

class Handler final : public IDMDeviceHandler {
public:
    bool isCanceledForDevice(const IDMDevice*) override { return ++asked > 1; }
    int asked = 0;
};
} // namespace

TEST_F(DnssdDevice, IsFoundByItsNameAndTakesBytesWhereverItMoves)
{
    ASSERT_TRUE(avahi->start());
    // A device that tells where it was reached.
    const auto answering = [](const char* answer) {
        return [answer](Conversation& far) {
            if (far.receive(5) == "hello")
                far.send(answer);
            far.receiveAll();
        };
    };
    Peer here(answering("here!")), there(answering("there"));
    const ServiceName name{"An odd. name/with 100%", "_pdl-datastream._tcp", "local"};
    const std::vector<std::string> txt{"usb_MFG=QL", "ty=QL Model 9", "usb_SN=CN12"};
    auto publication = avahi->publish(name.name, name.type, here.port(), txt);
    ASSERT_TRUE(publication);

    const auto service = serviceOf(name);
    const auto device = service->device();
    ASSERT_TRUE(device);
    EXPECT_TRUE(device->isReachable());
    const auto identity = device->retrieveParameters({}, nullptr);
    EXPECT_EQ(identity.string(kVendorNameProp), "QL");
    EXPECT_EQ(identity.string(kModelNameProp), "Model 9");
    EXPECT_EQ(identity.string(kDeviceNameProp), name.name);
    const auto& params = *identity[kParamsProp].asDictionary();
    EXPECT_EQ(params.string(kSerialNumberParam), "CN12");
    EXPECT_EQ(params.string(kIPPortParam), std::to_string(here.port()));

    const auto channel = channelTo(service);
    ASSERT_TRUE(channel);
    const auto talk = [&] {
        if (!channel->open())
            return std::string("not opened");
        auto result = written(*channel, Data::fromText("hello"));
        result += " " + received(*channel, 5);
        channel->close();
        return result;
    };
    EXPECT_EQ(talk(), "done here!");

    // It comes back at another port: the next opening finds it there.
    publication = nullptr;
    publication = avahi->publish(name.name, name.type, there.port(), txt);
    ASSERT_TRUE(publication);
    EXPECT_EQ(talk(), "done there");

    // All addresses are known, link-local ones with the interface behind which they are.
    Resolved resolved;
    ASSERT_EQ(resolve(name, Clock::now() + 30s, {}, resolved), Outcome::done);
    EXPECT_THAT(resolved.endpoint.addresses, Contains("127.0.0.1"));
    EXPECT_THAT(resolved.endpoint.addresses, Contains("10.77.0.1"));
    EXPECT_THAT(resolved.endpoint.addresses, Contains(testing::MatchesRegex("fe80::.*%.+")));

    // Without anybody behind the name's port it is no device.
    publication = nullptr;
    publication = avahi->publish(name.name, name.type, unusedPort(), txt);
    ASSERT_TRUE(publication);
    EXPECT_FALSE(device->isReachable());
    EXPECT_FALSE(serviceOf(name)->device());
}

TEST_F(DnssdDevice, SearchesEndInTimeWhateverIsMissing)
{
    const ServiceName nobody{"Nobody", "_ipp._tcp", "local"};
    Resolved resolved;
    const Stopwatch withoutBus;
    EXPECT_EQ(resolve(nobody, Clock::now() + 30s, {}, resolved), Outcome::refused);
    EXPECT_LT(withoutBus.seconds(), 20);
    ASSERT_TRUE(avahi->startBus());
    EXPECT_EQ(resolve(nobody, Clock::now() + 30s, {}, resolved), Outcome::refused);
    EXPECT_LT(withoutBus.seconds(), 30);
    ASSERT_TRUE(avahi->startDaemon());

    const Stopwatch limited;
    EXPECT_EQ(resolve(nobody, Clock::now() + 300ms, {}, resolved), Outcome::timedOut);
    EXPECT_LT(limited.seconds(), 10);
    const Stopwatch cancelled;
    const auto handler = std::make_shared<Handler>();
    EXPECT_FALSE(serviceOf(nobody)->locateDeviceWithHandler(handler));
    EXPECT_LT(cancelled.seconds(), 4);
    EXPECT_EQ(resolve({std::string(64, 'x'), "_ipp._tcp", "local"}, Clock::now() + 30s, {}, resolved),
              Outcome::refused); // longer than a name can be

    // The daemon goes while it is asked.
    std::atomic<bool> isGone{false};
    const Stopwatch abandoned;
    EXPECT_EQ(resolve(
                  nobody, Clock::now() + 30s,
                  [&] {
                      if (!isGone.exchange(true))
                          avahi->stopDaemon();
                      return false;
                  },
                  resolved),
              Outcome::refused);
    EXPECT_LT(abandoned.seconds(), 20);
}
