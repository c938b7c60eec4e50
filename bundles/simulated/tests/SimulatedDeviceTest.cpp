#include <future>

#include <gmock/gmock.h>

#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/platform/Bundle.h>

#include "support/ChannelDelegate.h"
#include "support/FakeServiceInfo.h"
#include "support/Stopwatch.h"

using dmf::Data;
using dmf::Dictionary;
using testing::ElementsAre;

namespace {
/// The bundle's I/O provider, found as a program finds it that registers a bundle of its choice.
std::shared_ptr<ADMIOProvider> simulation()
{
    static const auto provider = [] {
        const auto bundle = dmf::Bundle::bundleAtPath(DMF_BUILD_FOLDER "/lib/dmf/MockPlugIns/simulated.bundle");
        std::string refusal;
        EXPECT_TRUE(bundle && bundle->load(&refusal)) << refusal;
        const auto manager = ADMPlugInManager::sharedManager();
        manager->registerMockImplementors(bundle->infoDictionary());
        const auto found = manager->implementorForProtocol(ADMIOProvider::protocol(), {{"DMMockScheme", "simulated"}});
        return found ? found->make<ADMIOProvider>() : nullptr;
    }();
    return provider;
}

template <class Interface>
std::shared_ptr<const dmf::Class> simulated()
{
    return simulation()->implementorClassForProtocolWithName(Interface::protocol().name());
}

std::shared_ptr<IDMDevice> makeDevice(Dictionary script, std::shared_ptr<IDMDeviceHandler> handler = nullptr)
{
    script.set("vendorName", "QL");
    return simulated<IDMDevice>()->make<IDMDevice>(
        Dictionary{{"params", script}, {"vendorName", "QL"}, {"modelName", "Model 9"}, {"URI", script.description()}},
        std::move(handler));
}

/// A device with a script and a channel to it on the test's run loop.
struct Stage {
    explicit Stage(const Dictionary& script) : device(makeDevice(script))
    {
        channel = simulated<ADMDuplexDataChannel>()->make<ADMDuplexDataChannel>(
            std::make_shared<FakeServiceInfo>(device), std::string("Print"));
        channel->setDelegate(recorder.delegate);
        channel->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
        isOpen = channel->open();
    }
    std::string write(std::string_view text, double timeout = 10)
    {
        return written(*channel, Data::fromText(text), timeout);
    }
    std::string read(std::uint32_t length, double timeout = 10) { return received(*channel, length, timeout); }
    RecordingDelegate recorder;
    std::shared_ptr<IDMDevice> device;
    std::shared_ptr<ADMDuplexDataChannel> channel;
    bool isOpen = false;
};

class Handler : public IDMDeviceHandler {
public:
    bool isCanceledForDevice(const IDMDevice*) override { return true; }
};
} // namespace

TEST(SimulatedDevice, IsFoundAsItsScriptSays)
{
    ASSERT_TRUE(simulation());
    EXPECT_TRUE(makeDevice({})->isReachable());
    EXPECT_FALSE(makeDevice({{"reachable", "no"}}));
    const Dictionary third{{"foundAfter", "2"}};
    EXPECT_FALSE(makeDevice(third));
    EXPECT_FALSE(makeDevice(third));
    EXPECT_TRUE(makeDevice(third));
    EXPECT_FALSE(makeDevice({{"searchDelay", "60000"}}, std::make_shared<Handler>()));
    EXPECT_FALSE(simulation()->implementorClassForProtocolWithName("ADMLogger"));
}

TEST(SimulatedDevice, IsReachedThroughItsUri)
{
    ASSERT_TRUE(simulation());
    const auto info = ADMServiceInfoImp::serviceInfoWithURI(
        "simulated://QLDMF/v=1&connectionType=Simulated&vendorName=QL&modelName=Model%209&answer=@echo",
        "com.ql.printer");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->connectionType(), "Simulated");
    const auto channel = ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(info, "Print");
    ASSERT_TRUE(channel && channel->open());
    EXPECT_EQ(written(*channel, Data::fromText("hello")), "done");
    EXPECT_EQ(received(*channel, 5), "hello");
    EXPECT_EQ(info->device()->retrieveParameters({}, nullptr)["modelName"], "Model 9");
}

TEST(SimulatedDevice, AnswersEachRequest)
{
    Stage fixed({{"answer", "@PJL OK"}, {"greeting", "hi"}});
    EXPECT_EQ(fixed.read(2), "hi");
    EXPECT_EQ(fixed.read(1, 0.01), " 1/1:0");
    EXPECT_EQ(fixed.write("one"), "done");
    EXPECT_EQ(fixed.write("two"), "done");
    EXPECT_EQ(fixed.read(14), "@PJL OK@PJL OK");
    const auto told = fixed.device->retrieveParameters({{"written", true}}, nullptr);
    EXPECT_EQ((*told["params"].asDictionary())["written"], Data::fromText("onetwo"));
    EXPECT_EQ(told["modelName"], "Model 9");

    Stage binary({{"answerHex", "00fF7e"}, {"answerDelay", "30"}});
    EXPECT_EQ(binary.write("x"), "done");
    EXPECT_EQ(binary.read(3), std::string("\0\xff\x7e", 3));

    Stage echo({{"answer", "@echo"}, {"packetSize", "3"}});
    EXPECT_EQ(echo.channel->maxWritePacketSize(), 3u);
    EXPECT_EQ(echo.write("a longer text"), "done");
    EXPECT_EQ(echo.read(13), "a longer text");
}

TEST(SimulatedDevice, FailsAsItsScriptSays)
{
    EXPECT_FALSE(Stage({{"openStatus", "-21"}}).isOpen);
    EXPECT_EQ(Stage({{"writeStatus", "-53"}}).write("x"), "5/2:0");
    EXPECT_EQ(Stage({{"readStatus", "-12"}}).read(1), " 2/1:0");
    EXPECT_EQ(Stage({{"neverReads", "1"}}).write("x", 0.02), "1/2:0");
    EXPECT_EQ(Stage({{"writeDelay", "60000"}, {"packetSize", "2"}}).write("abc", 0.02), "1/2:2");

    Stage breaking({{"breakAfter", "5"}, {"answer", "@echo"}});
    EXPECT_EQ(breaking.write("abcdefgh"), "6/2:5");
    EXPECT_FALSE(breaking.channel->isOpened());

    Stage ending({{"greeting", "abcdef"}, {"endAfter", "4"}});
    EXPECT_EQ(ending.read(6), "abcd 5/1:4");
    EXPECT_TRUE(ending.channel->isOpened());
}

TEST(SimulatedDevice, ServesAsynchronousTransfers)
{
    Stage stage({{"answer", "@echo"}, {"packetSize", "4"}, {"answerDelay", "5"}});
    ASSERT_TRUE(stage.channel->scheduleReadDataOfLength(10, 10));
    ASSERT_TRUE(stage.channel->scheduleWriteData(Data::fromText("0123456789"), 10));
    ASSERT_TRUE(stage.recorder.waitFor("readDone"));
    EXPECT_THAT(stage.recorder.told, ElementsAre("wrote:4", "wrote:4", "wrote:2", "writeDone", "read:0123", "read:4567",
                                                 "read:89", "readDone"));
    // Beside a read that never ends, synchronous requests go their way.
    ASSERT_TRUE(stage.channel->scheduleReadDataWithTimeout(1800));
    EXPECT_EQ(stage.write("x"), "done");
    EXPECT_TRUE(stage.recorder.waitFor("read:x"));
    const auto impatient = std::make_shared<ADMDuplexDataChannelDelegate>(*stage.recorder.delegate);
    impatient->shouldCancelRead = [](ADMDuplexDataChannel&) { return true; };
    stage.channel->setDelegate(impatient);
    EXPECT_TRUE(stage.recorder.waitFor("failed:7/1"));
}

TEST(SimulatedDevice, CloseEndsEveryWait)
{
    for (const bool hasWorker : {false, true}) {
        Stage stage({{"neverReads", "1"}});
        if (hasWorker) {
            ASSERT_TRUE(stage.channel->scheduleWriteData(Data::fromText("x"), 1800));
        }
        std::promise<void> begun;
        stage.recorder.delegate->shouldCancelRead = [&, told = false](ADMDuplexDataChannel&) mutable {
            if (!std::exchange(told, true))
                begun.set_value();
            return false;
        };
        auto reading = std::async(std::launch::async, [&] { return stage.read(1, 1800); });
        begun.get_future().wait();
        const Stopwatch watch;
        stage.channel->close();
        EXPECT_EQ(reading.get(), " 3/1:0");
        EXPECT_LT(watch.seconds(), 10);
    }
}

TEST(SimulatedDevice, CloseGetsInWhileMuchIsMovedByteByByte)
{
    const Data much = Data::fromText(std::string(64 * 1024 * 1024, 'x'));
    for (const bool hasWorker : {false, true}) {
        Stage stage({{"packetSize", "1"}});
        std::future<bool> writing;
        if (hasWorker) {
            ASSERT_TRUE(stage.channel->scheduleWriteData(much, 1800));
        } else {
            std::promise<void> begun;
            stage.recorder.delegate->shouldCancelWrite = [&, told = false](ADMDuplexDataChannel&) mutable {
                if (!std::exchange(told, true))
                    begun.set_value();
                return false;
            };
            writing = std::async(std::launch::async, [&] { return stage.channel->writeData(much, 1800, nullptr); });
            begun.get_future().wait();
        }
        const Stopwatch watch;
        stage.channel->close();
        EXPECT_LT(watch.seconds(), 10);
        if (!hasWorker) {
            EXPECT_FALSE(writing.get());
        }
    }
}
