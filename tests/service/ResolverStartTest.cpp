#include <dmf/ADMGenericServiceResolver.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "ResolverSupport.h"
#include "support/LoopThread.h"

using dmf::Dictionary;
using dmf::RunLoop;
using namespace resolvertest;
using namespace std::chrono_literals;

using ResolverStart = ResolverFixture;

namespace {

/// A resolver with a delegate that a test scripts.
struct Told {
    Told()
    {
        resolver->setDelegate(delegate);
        delegate->serviceResolverDidFinish = [this](ADMServiceResolver&) {
            thread = std::this_thread::get_id();
            if (++times == 1 && atFirst)
                atFirst();
        };
    }
    std::atomic<int> times{0};
    std::atomic<std::thread::id> thread{};
    std::function<void()> atFirst;
    const std::shared_ptr<ADMServiceResolverDelegate> delegate = std::make_shared<ADMServiceResolverDelegate>();
    const std::shared_ptr<ADMGenericServiceResolver> resolver = std::make_shared<ADMGenericServiceResolver>();
};

/// How often the resolving thread has gone to sleep so far.
int sleepsOfTheWorker()
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name, line;
        std::ifstream(task.path() / "comm") >> name;
        std::ifstream status(task.path() / "status");
        while (name == "dmf-resolver" && std::getline(status, line)) {
            if (line.starts_with("voluntary_ctxt_switches:"))
                return std::stoi(line.substr(line.find(':') + 1));
        }
    }
    return -1;
}

} // namespace

// The worker of a start that timed out may still be at its device when the next start comes. Whatever that device says
// then, it is not the next one's.
TEST_F(ResolverStart, WhatAnEarlierStartStillFindsIsNotTheLaterOnes)
{
    const auto late = deviceOfQL();
    const std::function<std::shared_ptr<IDMDevice>()> ends[] = {
        [&] { return late; },
        [] { return nullptr; },
        []() -> std::shared_ptr<IDMDevice> { throw 7; },
    };
    for (const auto& end : ends) {
        std::promise<void> release;
        std::atomic<bool> asked{false}, returned{false};
        const auto slow = serviceOn(std::make_shared<FakeTransport>([&](const auto&, const auto&, int) {
            asked = true;
            release.get_future().wait();
            returned = true;
            return end();
        }));
        const auto wanted = deviceOfQL();
        const auto quick = serviceOn(std::make_shared<FakeTransport>(wanted));

        Told told;
        told.atFirst = [&] {
            EXPECT_EQ(told.resolver->lastError(), kTimedOut);
            told.resolver->resolveService(quick, 60, {}, RunLoop::current(), kModes);
            release.set_value();
        };
        told.resolver->resolveService(slow, 5, {}, RunLoop::current(), kModes);
        ASSERT_TRUE(serveUntil([&] { return asked.load(); }));
        host.advance(5s);
        ASSERT_TRUE(serveUntil([&] { return told.times == 2; }));
        EXPECT_EQ(told.resolver->resolvedDevice(), wanted);
        EXPECT_TRUE(told.resolver->lastError().empty());
        ASSERT_TRUE(serveUntil([&] { return returned && workers() == 0; }));
        EXPECT_EQ(told.resolver->resolvedDevice(), wanted);
        EXPECT_TRUE(told.resolver->lastError().empty());
        EXPECT_EQ(told.times, 2);
    }
}

TEST_F(ResolverStart, AStartTellsOnItsOwnRunLoop)
{
    const auto service = serviceOn(std::make_shared<FakeTransport>(deviceOfQL()));
    LoopThread other{std::string(kMode)};
    Told told;
    told.resolver->resolveService(service, 60, {}, other.loop(), kModes);
    ASSERT_TRUE(turnUntil([&] { return told.times == 1; }, "AnotherMode"));
    EXPECT_EQ(told.thread.load(), other.id());

    told.resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(turnUntil([&] { return !told.resolver->isValid(); }, "AnotherMode"));
    // The other loop serves whatever it has to serve for the resolver before this.
    std::atomic<int> turns{0};
    const auto turn = dmf::RunLoopSource::create([&] { ++turns; });
    other.loop()->addSource(turn, kMode);
    for (int i = 1; i <= 2; ++i) {
        turn->signal();
        other.loop()->wakeUp();
        ASSERT_TRUE(turnUntil([&] { return turns == i; }, "AnotherMode"));
    }
    EXPECT_EQ(told.times, 1);
    ASSERT_TRUE(serveUntil([&] { return told.times == 2; }));
    EXPECT_EQ(told.thread.load(), std::this_thread::get_id());
}

TEST_F(ResolverStart, AStartAfterAStopIsAStart)
{
    const auto transport = std::make_shared<FakeTransport>(
        [device = deviceOfQL()](const auto&, const auto&, int attempt) { return attempt == 1 ? nullptr : device; });
    const auto service = serviceOn(transport);
    Told told;
    told.resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return !told.resolver->lastError().empty(); }));
    told.resolver->stop();
    EXPECT_FALSE(told.resolver->isValid());
    told.resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return told.times == 1; }));
    EXPECT_TRUE(told.resolver->lastError().empty());
}

TEST_F(ResolverStart, ASleepingWorkerSleeps)
{
    const auto service = serviceOn(std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>()));
    Told told;
    told.resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return !told.resolver->lastError().empty(); }));
    const int before = sleepsOfTheWorker();
    (void)turnUntil([until = dmf::Date::afterNow(0.4)] { return dmf::Date::now() >= until; }, kMode);
    EXPECT_LE(sleepsOfTheWorker() - before, 5);
    told.resolver->stop();
    EXPECT_TRUE(serveUntil([] { return workers() == 0; })); // and is woken when it is needed no more
}

TEST_F(ResolverStart, ADeviceThatKeptItsHandlerIsCanceledByItsOwnStartOnly)
{
    std::shared_ptr<IDMDeviceHandler> first;
    const auto device = deviceOfQL();
    device->onRetrieve = [&](const auto&, const std::shared_ptr<IDMDeviceHandler>& handler) {
        if (!first)
            first = handler;
    };
    const auto service = serviceOn(std::make_shared<FakeTransport>(device));
    Told told;
    told.resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return told.times == 1; }));
    const auto nothing = serviceOn(std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>()));
    told.resolver->resolveService(nothing, 60, {}, RunLoop::current(), kModes);
    EXPECT_TRUE(told.resolver->isResolving());
    EXPECT_TRUE(first->isCanceledForDevice(device.get()));
    EXPECT_TRUE(serveUntil([&] { return !told.resolver->lastError().empty(); })); // its worker is seen by its name
}
