#include <dmf/ADMDuplexDataChannelBase.h>

#include <cmath>
#include <future>
#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include "support/ChannelDelegate.h"
#include "support/ScriptedProvider.h"

using dmf::Data;
using dmf::Dictionary;
using testing::ElementsAre;

namespace {

/// An open channel on the test's run loop, with a delegate that writes down what it is told.
class DuplexDataChannel : public testing::Test {
protected:
    void SetUp() override
    {
        channel->setDelegate(recorder.delegate);
        channel->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
        ASSERT_TRUE(channel->open());
    }

    RecordingDelegate recorder;
    std::shared_ptr<ScriptedChannel> channel = makeScriptedChannel();
};
} // namespace

TEST(DuplexDataChannelOpening, EveryRequestOnAClosedChannelIsRefused)
{
    const auto channel = makeScriptedChannel();
    RecordingDelegate recorder;
    channel->setDelegate(recorder.delegate);
    Data data = Data::fromText("x");
    std::uint8_t buffer[4];
    Dictionary error;
    EXPECT_FALSE(channel->writeData(data, 1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "3/2");
    EXPECT_FALSE(channel->readDataOfLength(data, 1, 1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "3/1");
    EXPECT_FALSE(channel->readDataUpToLength(data, 1, 1, nullptr));
    EXPECT_EQ(channel->readDataToBuffer(buffer, 1, &error), 0u);
    // Arguments come before the state of the channel.
    EXPECT_FALSE(channel->writeData(Data(), 1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "2/2");
    EXPECT_FALSE(channel->scheduleWriteData(data, 1));
    EXPECT_FALSE(channel->scheduleReadDataWithTimeout(1));
    // Told at once, without a turn of any run loop.
    EXPECT_THAT(recorder.told, ElementsAre("failed:3/2", "failed:3/1"));
}

TEST_F(DuplexDataChannel, RefusesEmptyAndNegativeRequests)
{
    Data data = Data::fromText("x");
    std::uint8_t buffer[4];
    Dictionary error;
    const auto code = [&](bool accepted) {
        EXPECT_FALSE(accepted);
        return RecordingDelegate::describe(std::exchange(error, {}));
    };
    EXPECT_EQ(code(channel->writeData(data, -0.001, &error)), "2/2");
    EXPECT_EQ(code(channel->readDataOfLength(data, 0, 1, &error)), "2/1");
    EXPECT_EQ(code(channel->readDataUpToLength(data, 1, -1, &error)), "2/1");
    EXPECT_EQ(code(channel->readDataToBuffer({}, 1, &error) != 0), "2/1");
    EXPECT_EQ(code(channel->readDataToBuffer(buffer, -1, &error) != 0), "2/1");
    EXPECT_EQ(data.text(), "x");

    EXPECT_FALSE(channel->scheduleWriteData(Data(), 1));
    EXPECT_FALSE(channel->scheduleReadDataOfLength(0, 1));
    EXPECT_FALSE(channel->scheduleReadDataWithTimeout(-1));
    EXPECT_THAT(recorder.told, ElementsAre("failed:2/2", "failed:2/1", "failed:2/1"));
}

TEST_F(DuplexDataChannel, HandsTimeoutsOverInMicroseconds)
{
    std::uint32_t seen = 0;
    channel->scripted()->onWrite = [&](ADMTransferTicket& ticket) {
        seen = ticket.timeout();
        EXPECT_EQ(ticket.deadline().has_value(), seen != dmf::kNoTimeout);
        return dmf::ProviderStatus::success;
    };
    const std::pair<double, std::uint32_t> cases[] = {
        {0, 0},
        {0.0000019, 1},
        {1799.5, 1'799'500'000},
        {1800, dmf::kNoTimeout},
        {std::numeric_limits<double>::infinity(), dmf::kNoTimeout},
        {std::nan(""), dmf::kNoTimeout},
    };
    for (const auto& [seconds, microseconds] : cases) {
        EXPECT_TRUE(channel->writeData(Data::fromText("x"), seconds, nullptr)) << seconds;
        EXPECT_EQ(seen, microseconds) << seconds;
    }
}

TEST_F(DuplexDataChannel, FailedReadsKeepTheBytesThatArrived)
{
    const auto provider = channel->scripted();
    provider->onRead = [](ADMTransferTicket& ticket) {
        std::memcpy(ticket.space().data(), "ab", 2);
        ticket.advance(2);
        return dmf::ProviderStatus::timedOut;
    };
    Data data = Data::fromText("<");
    Dictionary error;
    EXPECT_FALSE(channel->readDataOfLength(data, 5, 1, &error));
    EXPECT_EQ(data.text(), "<ab");
    EXPECT_EQ(RecordingDelegate::describe(error), "1/1:2");
    // Those who take any length are content with what came in time.
    EXPECT_TRUE(channel->readDataUpToLength(data, 5, 1, &error));
    EXPECT_EQ(data.text(), "<abab");
    std::uint8_t buffer[5];
    EXPECT_EQ(channel->readDataToBuffer(buffer, 1, &error), 2u);

    provider->onRead = [](ADMTransferTicket&) { return dmf::ProviderStatus::timedOut; };
    EXPECT_FALSE(channel->readDataUpToLength(data, 5, 1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "1/1:0");
    EXPECT_EQ(channel->readDataToBuffer(buffer, 1, nullptr), 0u);
    EXPECT_TRUE(channel->isOpened());
}

TEST(DuplexDataChannelOpening, NeedsADeviceAndReopensTheSameProvider)
{
    const auto bare = makeScriptedChannel(std::make_shared<FakeServiceInfo>(nullptr));
    EXPECT_FALSE(bare->open() || bare->provider());
    const auto channel = makeScriptedChannel();
    ASSERT_TRUE(channel->open());
    EXPECT_GT(channel->openTimeout, 1e9);
    const auto provider = channel->scripted();
    EXPECT_EQ(channel->maxReadPacketSize(), 4u);
    EXPECT_TRUE(channel->open());
    EXPECT_EQ(provider->opened, 1);
    channel->close();
    EXPECT_EQ(channel->maxWritePacketSize(), 0u);
    EXPECT_TRUE(channel->open());
    EXPECT_EQ(channel->provider(), provider);
    EXPECT_EQ(provider->opened, 2);

    channel->close();
    provider->onOpen = [] { return dmf::ProviderStatus::failed; };
    EXPECT_FALSE(channel->open());
    EXPECT_FALSE(channel->isOpened());
}

TEST(DuplexDataChannelOpening, ACloseMeanwhileWins)
{
    // Once while the provider connects, once while the device is still being looked for.
    for (const bool whileConnecting : {true, false}) {
        const auto info = std::make_shared<FakeServiceInfo>();
        const auto channel = makeScriptedChannel(info);
        std::future<void> closing;
        const auto closeElsewhere = [&] {
            closing = std::async(std::launch::async, [&] { channel->close(); });
            while (!channel->shouldClose())
                std::this_thread::yield();
        };
        if (whileConnecting)
            channel->prepare = [&](ScriptedProvider& provider) {
                provider.onOpen = [&] {
                    closeElsewhere();
                    return dmf::ProviderStatus::success;
                };
            };
        else
            info->onDevice = [&] {
                closeElsewhere();
                return std::make_shared<FakeDevice>();
            };
        EXPECT_FALSE(channel->open());
        closing.get();
        EXPECT_FALSE(channel->isOpened());
        EXPECT_EQ(channel->provider() != nullptr, whileConnecting);
    }
}

TEST_F(DuplexDataChannel, TellsAsynchronousTransfersInOrder)
{
    ASSERT_TRUE(channel->scheduleReadDataOfLength(5, 1));
    ASSERT_TRUE(channel->scheduleWriteData(Data::fromText("12345"), 1));
    const auto provider = channel->scripted();
    provider->post([](ScriptedProvider& worker) {
        worker.arrive("ab");
        worker.writeTicket()->advance(3);
        worker.notifyParentOnTicket(worker.writeTicket(), 0);
        worker.arrive("cde");
        worker.writeTicket()->advance(2);
        worker.notifyParentOnTicket(worker.writeTicket(), 0);
    });
    ASSERT_TRUE(recorder.waitFor("writeDone"));
    EXPECT_THAT(recorder.told, ElementsAre("read:ab", "wrote:3", "read:cde", "readDone", "wrote:2", "writeDone"));

    // Both places are free again, and failures come with what had been moved before.
    recorder.told.clear();
    ASSERT_TRUE(channel->scheduleReadDataWithTimeout(1));
    EXPECT_FALSE(channel->scheduleReadDataWithTimeout(1));
    provider->post([](ScriptedProvider& worker) { worker.arrive("z", dmf::ProviderStatus::peerEnded); });
    ASSERT_TRUE(recorder.waitFor("failed:5/1"));
    EXPECT_THAT(recorder.told, ElementsAre("failed:4/1", "read:z", "failed:5/1"));
}

TEST_F(DuplexDataChannel, TellsOnceItIsScheduledAndWhereverItStillIs)
{
    const auto loop = dmf::RunLoop::current();
    channel->removeFromRunLoop(loop, dmf::kDefaultRunLoopMode);
    ASSERT_TRUE(channel->scheduleReadDataOfLength(1, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("a"); }).wait();
    channel->scheduleInRunLoop(loop, dmf::kDefaultRunLoopMode);
    EXPECT_TRUE(recorder.waitFor("readDone")) << "the first result was there before";

    channel->scheduleInRunLoop(loop, "dialog");
    channel->removeFromRunLoop(loop, dmf::kDefaultRunLoopMode);
    ASSERT_TRUE(channel->scheduleReadDataOfLength(1, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("b"); });
    EXPECT_EQ(loop->runMode("dialog", dmf::Date::afterNow(30), true), dmf::RunLoop::Result::handledSource);
}

TEST_F(DuplexDataChannel, OperationsThatTheDelegateLacksAreDropped)
{
    recorder.delegate->didReadDataBlock = {};
    recorder.delegate->didFinishReadData = {};
    ASSERT_TRUE(channel->scheduleReadDataOfLength(1, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("a"); }).get();
    ASSERT_TRUE(channel->scheduleReadDataOfLength(1, 1));
    channel->scripted()->post([](ScriptedProvider& worker) {
        worker.notifyParentOnTicket(worker.readTicket(), dmf::ProviderStatus::failed);
    });
    ASSERT_TRUE(recorder.waitFor("failed:6/1"));
    EXPECT_EQ(recorder.told.size(), 1u);
}

TEST_F(DuplexDataChannel, ReopeningDropsWhatWasNotDelivered)
{
    ASSERT_TRUE(channel->scheduleReadDataOfLength(3, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("old"); }).wait();
    channel->close();
    ASSERT_TRUE(channel->open());
    ASSERT_TRUE(channel->scheduleReadDataOfLength(3, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("new"); });
    ASSERT_TRUE(recorder.waitFor("readDone"));
    EXPECT_THAT(recorder.told, ElementsAre("read:new", "readDone"));
}

TEST_F(DuplexDataChannel, CannotBeOpenedWhileACloseWaits)
{
    ASSERT_TRUE(channel->scheduleReadDataOfLength(9, 1));
    const auto provider = channel->scripted();
    provider->post([](ScriptedProvider& worker) { worker.arrive("told"); }).wait();
    std::promise<void> begun, release;
    auto busy = provider->post(
        [&](ScriptedProvider&) {
            begun.set_value();
            release.get_future().wait();
        },
        false);
    begun.get_future().wait(); // else the worker may end before it comes to this
    auto closing = std::async(std::launch::async, [&] { channel->close(); });
    while (!provider->isClosing())
        std::this_thread::yield();
    EXPECT_FALSE(channel->open());
    EXPECT_TRUE(channel->shouldClose());
    EXPECT_FALSE(channel->isOpened());
    EXPECT_TRUE(recorder.waitFor("read:told")); // a refused opening drops nothing
    release.set_value();
    closing.get();
    EXPECT_TRUE(channel->open());
}

TEST_F(DuplexDataChannel, BlocksThatTheClientKeepsStayAsTheyAre)
{
    std::vector<Data> kept;
    recorder.delegate->didReadDataBlock = [&](ADMDuplexDataChannel&, const Data& block) {
        if (recorder.told.size() % 3 == 0) // some go, so that their memory is used again
            kept.push_back(block);
        recorder.told.emplace_back(block.text());
    };
    ASSERT_TRUE(channel->scheduleReadDataWithTimeout(1));
    for (int i = 0; i < 100; ++i) {
        channel->scripted()->post([&](ScriptedProvider& worker) { worker.arrive(std::to_string(1000 + i)); }).wait();
        ASSERT_TRUE(recorder.waitFor(std::to_string(1000 + i)));
    }
    ASSERT_EQ(kept.size(), 34u);
    for (std::size_t i = 0; i < kept.size(); ++i)
        EXPECT_EQ(kept[i].text(), std::to_string(1000 + 3 * i));
}

TEST_F(DuplexDataChannel, AsksTheDelegateWhetherToCancel)
{
    EXPECT_FALSE(channel->shouldCancelRead());
    recorder.delegate->shouldCancelRead = [](ADMDuplexDataChannel&) { return true; };
    EXPECT_TRUE(channel->shouldCancelRead());
    EXPECT_FALSE(channel->shouldCancelWrite());
    recorder.delegate->shouldCancelRead = [](ADMDuplexDataChannel&) -> bool { throw std::runtime_error("no"); };
    EXPECT_FALSE(channel->shouldCancelRead());
    recorder.delegate->shouldCancelRead = [](ADMDuplexDataChannel&) -> bool { throw 7; };
    EXPECT_THROW((void)channel->shouldCancelRead(), int);

    recorder.delegate->shouldCancelRead = [](ADMDuplexDataChannel&) { return false; };
    channel->close();
    EXPECT_FALSE(channel->shouldCancelRead()); // the delegate has the say
    EXPECT_TRUE(channel->shouldCancelWrite()); // nobody to ask: the close decides
}

TEST_F(DuplexDataChannel, MayBeReleasedInADelegateCall)
{
    const std::weak_ptr<ScriptedChannel> watch = channel;
    const std::weak_ptr<ScriptedProvider> provider = channel->scripted();
    recorder.delegate->didReadDataBlock = [this](ADMDuplexDataChannel&, const Data&) { channel.reset(); };
    ASSERT_TRUE(channel->scheduleReadDataOfLength(2, 1));
    channel->scripted()->post([](ScriptedProvider& worker) { worker.arrive("ab"); });
    EXPECT_TRUE(turnUntil([&] { return watch.expired() && provider.expired(); }));
}

TEST_F(DuplexDataChannel, MayBeReleasedOnTheWorkerThread)
{
    const auto provider = channel->scripted();
    const std::weak_ptr<ScriptedChannel> watch = channel;
    ASSERT_TRUE(channel->scheduleReadDataOfLength(2, 1));
    provider->post([last = std::move(channel)](ScriptedProvider& worker) mutable {
        worker.arrive("ab");
        last.reset();
    });
    EXPECT_TRUE(turnUntil([&] { return watch.expired() && !provider->isRunning(); }));
    EXPECT_EQ(provider->closed, 1);
}
