#include <dmf/ADMServiceDiscoveryBase.h>

#include <gmock/gmock.h>

#include <dmf/ADMDiscoveryThread.h>
#include <dmf/platform/Error.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <stdexcept>
#include <thread>

#include "discovery/FakeBackEnd.h"
#include "support/LogCapture.h"

using testing::ElementsAre;

DMF_REGISTER_CLASS(FakeServiceDiscovery)
{
    described.implements<IDMServiceDiscovery>(&FakeServiceDiscovery::make);
}

namespace {
using Base = ADMServiceDiscoveryBase;

void await(const std::shared_ptr<IDMLock>& completion)
{
    ASSERT_TRUE(completion);
    completion->lock();
    completion->unlock();
}
} // namespace

TEST(ServiceDiscovery, TheThreadLivesAsLongAsAnyProvider)
{
    FakeBackEnds backEnds;
    EXPECT_FALSE(Base::runloop());
    EXPECT_EQ(Base::lock(), -1);
    EXPECT_EQ(Base::unlock(), -1);
    EXPECT_FALSE(Base::lockObject());
    EXPECT_FALSE(Base::performAction([] {}));

    auto first = FakeServiceDiscovery::make("Print", "Fake", {});
    auto second = FakeServiceDiscovery::make("Print", "Other", {});
    const auto loop = Base::runloop();
    ASSERT_TRUE(loop);
    first.reset();
    EXPECT_EQ(Base::runloop(), loop);
    EXPECT_FALSE(loop->hasEnded());
    second.reset();
    EXPECT_FALSE(Base::runloop());
    EXPECT_TRUE(turnUntil([&] { return loop->hasEnded(); }));

    second = FakeServiceDiscovery::make("Print", "Other", {});
    EXPECT_TRUE(Base::runloop());
}

TEST(ServiceDiscovery, ActionsRunInOrderUnderTheThreadsLock)
{
    FakeBackEnds backEnds;
    const auto keeper = FakeServiceDiscovery::make("Print", "Fake", {});
    EXPECT_FALSE(Base::performAction(nullptr));

    std::vector<int> order;
    std::thread::id thread;
    const auto lock = Base::lockObject();
    ASSERT_EQ(Base::lock(), 0);
    Base::performAction([&] {
        order.push_back(1);
        thread = std::this_thread::get_id();
        // The lock is recursive and already held here.
        order.push_back(lock->trylock() == 0 && lock->unlock() == 0 ? 2 : -2);
    });
    const auto last = Base::performAction([&] { order.push_back(3); });
    EXPECT_EQ(last->trylock(), EBUSY); // the thread waits for the lock that is held here
    EXPECT_TRUE(order.empty());
    Base::unlock();
    await(last);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(ServiceDiscovery, WhatABackEndThrowsDoesNotEndTheThread)
{
    HostFixture host;
    FakeBackEnds backEnds;
    const auto keeper = FakeServiceDiscovery::make("Print", "Fake", {});
    await(Base::performAction([] { throw std::runtime_error("broken back end"); }));
    await(Base::performAction([] { throw 5; }));
    const auto timer =
        dmf::RunLoopTimer::create(dmf::Date::now(), 0, dmf::RunLoopTimer::Repeat::no, [](auto&) { throw 5; });
    Base::runloop()->addTimer(timer, dmf::kDefaultRunLoopMode);
    while (timer->isValid())
        await(Base::performAction([] {}));
    std::atomic<bool> ran{false};
    await(Base::performAction([&] { ran = true; }));
    EXPECT_TRUE(ran);
}

TEST(ServiceDiscovery, TheThreadEndsWithItsLockHeldAndWithWorkQueued)
{
    FakeBackEnds backEnds;
    auto keeper = FakeServiceDiscovery::make("Print", "Fake", {});
    const auto lock = Base::lockObject();
    lock->lock();
    lock->lock();
    std::atomic<int> ran{0};
    const auto before = Base::performAction([&] { ++ran; });
    keeper.reset();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(before->trylock(), 0);
    EXPECT_EQ(lock->unlock(), 0);
    EXPECT_EQ(lock->unlock(), 0);
    EXPECT_NE(lock->unlock(), 0);
}

TEST(ServiceDiscovery, ALockThatIsHeldWhileTheThreadEndsIsGivenBack)
{
    FakeBackEnds backEnds;
    auto keeper = FakeServiceDiscovery::make("Print", "Fake", {});
    ASSERT_EQ(Base::lock(), 0);
    auto released = std::async(std::launch::async, [&] { keeper.reset(); });
    ASSERT_TRUE(turnUntil([] { return !Base::runloop(); }));
    EXPECT_EQ(Base::unlock(), 0);
    EXPECT_EQ(released.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(Base::unlock(), -1);
}

TEST(ServiceDiscovery, AThreadMayBeAskedToEndWhileItIsStartedAnew)
{
    const auto thread = ADMDiscoveryThread::init();
    std::atomic<bool> isOver{false};
    std::thread other([&] {
        while (!isOver) {
            thread->signalForStop();
            std::this_thread::yield(); // on a busy machine the others have to get their turn
        }
    });
    int starts = 0;
    for (int round = 0; round < 30; ++round) {
        thread->stop();
        starts += thread->start() == 0 ? 1 : 0;
    }
    isOver = true;
    other.join();
    thread->stop();
    EXPECT_EQ(starts, 30);
    EXPECT_FALSE(thread->runLoop());
    ASSERT_EQ(thread->start(), 0);
    await(thread->performAction([] {}));
}

TEST(ServiceDiscovery, TheLastReferenceMayGoOnTheDiscoveryThread)
{
    FakeBackEnds backEnds;
    auto discovery = FakeServiceDiscovery::make("Print", "Fake", {});
    const auto loop = Base::runloop();
    const auto done = Base::performAction([held = std::move(discovery)]() mutable { held.reset(); });
    await(done);
    EXPECT_TRUE(turnUntil([&] { return loop->hasEnded(); }));
    EXPECT_FALSE(Base::runloop());

    auto thread = ADMDiscoveryThread::init(); // one of one's own
    const auto ownLoop = thread->runLoop();
    std::atomic<bool> ran{false};
    thread->performAction([&] { ran = true; });
    thread.reset();
    EXPECT_TRUE(ran);
    EXPECT_TRUE(turnUntil([&] { return ownLoop->hasEnded(); }));
}

TEST(ServiceDiscovery, AStartTellsWhyItFailed)
{
    FakeBackEnds backEnds;
    dmf::Dictionary error;
    const auto discovery = FakeServiceDiscovery::make("Print", "Fake", {});
    EXPECT_TRUE(discovery->startServiceDiscovery(&error));
    EXPECT_TRUE(error.empty());

    backEnds.onStart = [](FakeServiceDiscovery&) { return 5U; };
    EXPECT_FALSE(discovery->startServiceDiscovery(nullptr));
    EXPECT_FALSE(discovery->startServiceDiscovery(&error));
    EXPECT_EQ(error[kDMErrorDescription], "Failed to start service discovery.");
    EXPECT_EQ(error[kDMErrorCode], 5);

    backEnds.makesNoProvider = true;
    const auto bare = FakeServiceDiscovery::make("Print", "Fake", {});
    EXPECT_FALSE(bare->startServiceDiscovery(&error));
    EXPECT_EQ(error[kDMErrorDescription], "Invalid discovery implementor (nil).");
    EXPECT_EQ(error[kDMErrorCode], -1);
}
