#include <dmf/ADMConnectionProvider.h>

#include <future>

#include <gmock/gmock.h>

#include "support/ChannelDelegate.h"
#include "support/ScriptedProvider.h"

namespace ProviderStatus = dmf::ProviderStatus;
using testing::ElementsAre;

namespace {
constexpr std::uint32_t kSecond = 1'000'000;

class ConnectionProvider : public testing::Test {
protected:
    void SetUp() override
    {
        channel->setDelegate(recorder.delegate);
        channel->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
        ASSERT_TRUE(channel->open());
        provider = channel->scripted();
    }
    /// A synchronous read of two bytes: its status and what it gave.
    std::pair<int, std::string> read(std::uint32_t timeout = 0) const
    {
        std::uint8_t buffer[2] = {};
        std::uint32_t length = 2;
        const int status = provider->readData(buffer, length, true, timeout);
        return {status, std::string(buffer, buffer + length)};
    }
    std::future<std::pair<int, std::string>> readElsewhere() const
    {
        return std::async(std::launch::async, [this] { return read(10 * kSecond); });
    }
    /// Has a worker running by way of an asynchronous write that never ends.
    void startWorker()
    {
        ASSERT_EQ(provider->writeAsyncData(dmf::Data::fromText("pending"), dmf::kNoTimeout), 0);
        ASSERT_EQ(provider->started, 1);
    }

    RecordingDelegate recorder;
    std::shared_ptr<ScriptedChannel> channel = makeScriptedChannel();
    std::shared_ptr<ScriptedProvider> provider;
};
} // namespace

TEST_F(ConnectionProvider, ClosedTakesNoStepAndNoRequest)
{
    EXPECT_EQ(provider->close(), 0);
    EXPECT_EQ(provider->close(), 0);
    EXPECT_EQ(provider->closed, 1);
    EXPECT_EQ(read(), std::pair(int{ProviderStatus::notOpen}, std::string()));
    EXPECT_EQ(provider->readAsyncDataOfLength(2, 0), ProviderStatus::notOpen);
    EXPECT_EQ(provider->started, 0);
}

TEST_F(ConnectionProvider, SynchronousFailuresCloseSaveTheForgivable)
{
    for (const std::int16_t status : std::initializer_list<std::int16_t>{0, -14, -25, -53, -200, -21, -12, 5}) {
        ASSERT_EQ(provider->open(), 0);
        provider->onRead = [&](ADMTransferTicket& ticket) {
            ticket.advance(1);
            return status;
        };
        EXPECT_EQ(read(), std::pair(int{status}, std::string(1, '\0')));
        const bool isForgivable = status == 0 || status == -14 || status == -25 || status == -53 || status == -200;
        EXPECT_EQ(provider->isOpen(), isForgivable) << status;
    }
}

TEST_F(ConnectionProvider, ReadsOfAnyLengthGoOnBlockByBlockUntilAFailure)
{
    ASSERT_EQ(provider->readAsyncDataOfLength(0, kSecond), 0);
    provider->post([](ScriptedProvider& worker) {
        EXPECT_EQ(worker.readTicket()->space().size(), 4u); // the packet size
        worker.arrive("ab");
        EXPECT_EQ(worker.readTicket()->space().size(), 4u);
        worker.arrive("cdef");
        worker.notifyParentOnTicket(worker.readTicket(), 0); // nothing new is not told
        worker.notifyParentOnTicket(worker.readTicket(), ProviderStatus::timedOut);
        EXPECT_FALSE(worker.readTicket());
        worker.notifyParentOnTicket(nullptr, 0);
    });
    EXPECT_TRUE(recorder.waitFor("failed:1/1"));
    EXPECT_THAT(recorder.told, ElementsAre("read:ab", "read:cdef", "failed:1/1"));
}

TEST_F(ConnectionProvider, LongReadsTakeLittleMemory)
{
    ASSERT_EQ(provider->readAsyncDataOfLength(0xFFFFFFFF, kSecond), 0);
    provider->post([](ScriptedProvider& worker) {
        const auto room = worker.readTicket()->space().size();
        EXPECT_LT(room, 1024u * 1024u);
        worker.arrive(std::string(room, 'a'));
        EXPECT_EQ(worker.readTicket()->space().size(), room);
        worker.arrive("b", ProviderStatus::timedOut);
    });
    ASSERT_TRUE(recorder.waitFor("failed:1/1"));
    EXPECT_EQ(recorder.bytes.back(), 'b');
}

TEST_F(ConnectionProvider, ARunningWorkerServesSynchronousRequestsToo)
{
    startWorker();
    auto result = readElsewhere();
    provider->waitForRequest();
    provider->post([](ScriptedProvider& worker) {
        auto* const ticket = worker.readTicket();
        ASSERT_TRUE(ticket && ticket->isSynchronous());
        worker.arrive("ok", ProviderStatus::success);
        worker.notifyParentOnTicket(ticket, ProviderStatus::failed); // told ended already
        EXPECT_FALSE(worker.readTicket());
    });
    EXPECT_EQ(result.get(), std::pair(0, std::string("ok")));
    EXPECT_EQ(provider->started, 1);
}

TEST_F(ConnectionProvider, TheWorkersOwnRequestsRunOnItsThread)
{
    startWorker();
    provider->onRead = [](ADMTransferTicket&) { return ProviderStatus::timedOut; };
    int status = 0;
    provider->post([&](ScriptedProvider&) { status = read().first; }, false).get();
    EXPECT_EQ(status, ProviderStatus::timedOut);
}

TEST_F(ConnectionProvider, AWorkerThatCannotServeFailsTheRequestAndCloses)
{
    using Start = ScriptedProvider::Start;
    for (const auto how : {Start::refuses, Start::endsSilently, Start::throws, Start::hasNoThread}) {
        ASSERT_EQ(provider->open(), 0);
        provider->startAs = how;
        EXPECT_EQ(provider->readAsyncDataOfLength(1, kSecond), ProviderStatus::failed);
        EXPECT_FALSE(provider->isOpen());
        // The next opening is not burdened by it.
        provider->startAs = Start::serves;
        ASSERT_EQ(provider->open(), 0);
        EXPECT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
        EXPECT_EQ(provider->close(), 0);
    }
    EXPECT_TRUE(recorder.told.empty());
}

TEST_F(ConnectionProvider, ClosingOnManyThreadsReleasesWhoeverWaits)
{
    startWorker();
    auto result = readElsewhere();
    provider->waitForRequest();
    std::vector<std::future<void>> closers;
    for (int i = 0; i < 4; ++i)
        closers.push_back(std::async(std::launch::async, [this] { channel->close(); }));
    for (auto& closer : closers)
        closer.get();
    EXPECT_EQ(result.get().first, ProviderStatus::notOpen);
    EXPECT_FALSE(provider->isRunning());
    EXPECT_EQ(provider->closed, 1);
    // Asynchronous requests ended without a word, and their places are free after the next opening.
    ASSERT_TRUE(channel->open());
    EXPECT_EQ(provider->writeAsyncData(dmf::Data::fromText("next"), kSecond), 0);
    provider->post([](ScriptedProvider& worker) { worker.notifyParentOnTicket(worker.writeTicket(), -14); });
    EXPECT_TRUE(recorder.waitFor("failed:1/2"));
    EXPECT_THAT(recorder.told, ElementsAre("failed:1/2"));
}

TEST_F(ConnectionProvider, AWorkerThatBreaksDownFailsWhatIsPending)
{
    startWorker();
    auto result = readElsewhere();
    provider->waitForRequest();
    provider->breakDown();
    EXPECT_EQ(result.get().first, ProviderStatus::failed);
    EXPECT_TRUE(recorder.waitFor("failed:6/2"));
    EXPECT_TRUE(provider->isOpen());
    // The next request has a new worker.
    ASSERT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
    provider->post([](ScriptedProvider& worker) { worker.arrive("x"); });
    EXPECT_TRUE(recorder.waitFor("readDone"));
    EXPECT_EQ(provider->started, 2);
}

TEST_F(ConnectionProvider, MayBeClosedOnItsWorkerAndOpenedAgainAtOnce)
{
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(channel->open());
        ASSERT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
        recorder.delegate->shouldCancelRead = [](ADMDuplexDataChannel& asked) {
            asked.close();
            return true;
        };
        provider->post([](ScriptedProvider& worker) { EXPECT_TRUE(worker.shouldCancelRead()); }, false).wait();
        EXPECT_FALSE(channel->isOpened());
        ASSERT_TRUE(channel->open());
        ASSERT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
        provider->post([](ScriptedProvider& worker) { worker.arrive("x"); });
        ASSERT_TRUE(recorder.waitFor("readDone"));
        recorder.told.clear();
        channel->close();
    }
}

TEST_F(ConnectionProvider, AWorkerThatClosedTakesNothingMoreUponItself)
{
    ASSERT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
    std::promise<void> othersTurn;
    recorder.delegate->shouldCancelRead = [&](ADMDuplexDataChannel& asked) {
        asked.close();
        EXPECT_TRUE(asked.open());
        othersTurn.set_value(); // somebody else now waits for this worker to end
        EXPECT_FALSE(asked.scheduleReadDataOfLength(1, 1));
        return true;
    };
    auto asking = provider->post([](ScriptedProvider& worker) { EXPECT_TRUE(worker.shouldCancelRead()); }, false);
    othersTurn.get_future().wait();
    EXPECT_EQ(provider->writeAsyncData(dmf::Data::fromText("x"), kSecond), 0);
    asking.wait();
    // The fresh connection is still there, with a worker of its own.
    EXPECT_TRUE(channel->isOpened());
    EXPECT_EQ(provider->started, 2);
    EXPECT_EQ(provider->readAsyncDataOfLength(1, kSecond), 0);
    provider->post([](ScriptedProvider& worker) { worker.arrive("y"); });
    EXPECT_TRUE(recorder.waitFor("readDone"));
}

TEST_F(ConnectionProvider, AWorkerStartedInOpeningServesFromTheFirstRequestOn)
{
    channel->close();
    enum class How { startsAndGoesOn, awaitsItsWord, isPrivate };
    for (const auto how : {How::startsAndGoesOn, How::awaitsItsWord, How::isPrivate}) {
        provider->hasPrivateThread = how == How::isPrivate;
        provider->onOpen = [&] {
            const bool isStarted = how == How::awaitsItsWord ? provider->startWorker() : provider->start() == 0;
            return isStarted ? ProviderStatus::success : ProviderStatus::failed;
        };
        provider->started = 0;
        ASSERT_TRUE(channel->open());
        ASSERT_EQ(provider->readAsyncDataOfLength(2, 10 * kSecond), 0);
        provider->post([](ScriptedProvider& worker) { worker.arrive("ab"); });
        EXPECT_TRUE(recorder.waitFor("readDone"));
        provider->waitForRequest();
        auto result = readElsewhere();
        provider->waitForRequest();
        provider->post([](ScriptedProvider& worker) { worker.arrive("cd"); });
        EXPECT_EQ(result.get(), std::pair(0, std::string("cd")));
        EXPECT_EQ(provider->started, 1);
        // One that closes the channel itself leaves it to be opened with the next worker.
        provider->post([&](ScriptedProvider&) { channel->close(); }, false).wait();
        ASSERT_TRUE(channel->open());
        EXPECT_TRUE(provider->isRunning());
        channel->close();
        EXPECT_FALSE(provider->isRunning());
        recorder.told.clear();
    }
}

TEST_F(ConnectionProvider, AnOpeningThatFailsLeavesNoWorker)
{
    channel->close();
    provider->onOpen = [&] {
        EXPECT_TRUE(provider->startWorker());
        return ProviderStatus::busy;
    };
    EXPECT_EQ(provider->open(), ProviderStatus::busy);
    EXPECT_TRUE(turnUntil([&] { return !provider->isRunning(); }));
    provider->startAs = ScriptedProvider::Start::refuses;
    provider->onOpen = [&] { return provider->startWorker() ? ProviderStatus::success : ProviderStatus::failed; };
    EXPECT_EQ(provider->open(), ProviderStatus::failed);
    provider->startAs = ScriptedProvider::Start::serves;
    EXPECT_EQ(provider->open(), 0);
}

TEST_F(ConnectionProvider, FinishingIsAWriteOfItsOwn)
{
    EXPECT_EQ(provider->finishWriting(0), 0) << "most have nothing to do";
    provider->onFinishWriting = [&](ADMTransferTicket& ticket) {
        EXPECT_TRUE(provider->isPending(ticket) && ticket.isSynchronous() && ticket.isComplete());
        EXPECT_EQ(ticket.timeout(), kSecond);
        EXPECT_EQ(provider->writeAsyncData(dmf::Data::fromText("x"), 0), ProviderStatus::busy);
        return ProviderStatus::timedOut;
    };
    EXPECT_EQ(provider->finishWriting(kSecond), ProviderStatus::timedOut);
    EXPECT_TRUE(provider->isOpen());
    // Beside a worker it stays with its caller.
    ASSERT_EQ(provider->readAsyncDataOfLength(2, 10 * kSecond), 0);
    EXPECT_EQ(provider->finishWriting(kSecond), ProviderStatus::timedOut);
    startWorker();
    EXPECT_EQ(provider->finishWriting(kSecond), ProviderStatus::busy);
    provider->post([](ScriptedProvider& worker) { worker.notifyParentOnTicket(worker.writeTicket(), -14); }).wait();
    provider->onFinishWriting = [](ADMTransferTicket&) { return ProviderStatus::failed; };
    dmf::Dictionary error;
    EXPECT_FALSE(channel->finishWriting(1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "6/2:0");
    EXPECT_TRUE(provider->isOpen()) << "asynchronous transfers have the say";
    channel->close();
    EXPECT_FALSE(channel->finishWriting(1, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "3/2");
}

TEST_F(ConnectionProvider, ATransferDoesNotPassToTheNextConnection)
{
    provider->onRead = [&](ADMTransferTicket& ticket) {
        EXPECT_TRUE(provider->isPending(ticket));
        channel->close(); // in between, before the transport had fetched its connection
        EXPECT_TRUE(channel->open());
        EXPECT_FALSE(provider->isPending(ticket));
        return ProviderStatus::failed;
    };
    EXPECT_EQ(read().first, ProviderStatus::failed);
    EXPECT_TRUE(provider->isOpen()); // the failure was the old connection's
}

TEST_F(ConnectionProvider, GivesUpWhenTheChannelHasGone)
{
    const auto kept = provider;
    channel.reset();
    EXPECT_FALSE(kept->isOpen());
    EXPECT_TRUE(kept->shouldCancelRead());
    EXPECT_FALSE(
        ADMConnectionProvider::initWithParent<ScriptedProvider>(channel, nullptr, std::make_shared<FakeDevice>()));
}
