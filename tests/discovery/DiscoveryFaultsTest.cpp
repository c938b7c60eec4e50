#include <dmf/ADMBaseDiscovery.h>

#include <gmock/gmock.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>

#include "discovery/Session.h"
#include "support/Stopwatch.h"

using testing::ElementsAre;
using State = ADMDiscoverySource::State;

TEST(DiscoveryFaults, ASynchronousRunEndsWhenItIsStoppedOrAReportThrows)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0.1"));
        return 0U;
    };
    Session session({"Print"}, false);
    session.delegate->discoveryDidFindService = [](ADMDiscovery& it, const auto&) { it.stop(); };
    const Stopwatch watch;
    const auto found = session.discovery->performDiscoveryForConnectionTypes(kFake, 30);
    EXPECT_EQ(found->size(), 1U);

    session.delegate->discoveryDidFindService = [](auto&, const auto&) { throw std::runtime_error("client"); };
    EXPECT_THROW((void)session.discovery->performDiscoveryForConnectionTypes(kFake, 30), std::runtime_error);
    EXPECT_FALSE(session.discovery->isStarted());
    EXPECT_FALSE(session.discovery->runLoop());
    EXPECT_LT(watch.seconds(), 25);
}

TEST(DiscoveryFaults, ADelegateMayStopRescheduleAndReleaseFromAReport)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0.1"));
        it.report(serviceAt("10.0.0.2"));
        return 0U;
    };
    Session session;
    int starts = 0;
    session.delegate->discoveryDidFindService = [&](ADMDiscovery& it, const auto&) {
        it.stop();
        if (++starts < 3)
            it.scheduleDiscoveryForConnectionTypes(kFake);
        else
            session.discovery.reset();
    };
    session.discovery->scheduleDiscoveryForConnectionTypes(kFake);
    EXPECT_TRUE(turnUntil([&] { return !session.discovery; }));
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
}

TEST(DiscoveryFaults, ABackEndThatHangsTakesNobodyWithIt)
{
    DiscoveryHost host;
    std::latch gate(1);
    std::atomic<int> stopped{0};
    host.backEnds.onStop = [&] { ++stopped; };
    host.backEnds.onStart = [&](FakeServiceDiscovery&) {
        gate.wait();
        return 0U;
    };
    {
        // Released while its back end starts, which waits for us: it is not waited for.
        Session released;
        released.discovery->scheduleDiscoveryForConnectionTypes(kFake);
        ASSERT_TRUE(turnUntil([&] { return host.backEnds.madeCount() == 1; }));
        released.discovery.reset();
    }
    Session session;
    session.discovery->scheduleDiscoveryForConnectionTypes(kFake);
    ASSERT_TRUE(turnUntil([&] { return host.backEnds.madeCount() == 2; }));
    session.discovery->stop();
    ASSERT_TRUE(session.hears(2));
    EXPECT_THAT(session.heard, ElementsAre("will start", "did stop"));
    EXPECT_EQ(stopped, 0);
    gate.count_down();
    // What started too late is stopped, and goes.
    EXPECT_TRUE(turnUntil([&] { return stopped >= 2 && host.backEnds.alive().empty(); }));
}

TEST(DiscoveryFaults, ThousandsOfReportsWhileStartingAndStopping)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        const auto found = serviceAt("10.0.0.1");
        for (int count = 0; count < 1000; ++count)
            it.report(found, count % 2 == 1);
        return 0U;
    };
    Session session({"Print", "Scan"});
    std::atomic<int> reports{0};
    session.delegate->discoveryDidFindService = [&](auto&, const auto&) { ++reports; };
    session.delegate->discoveryDidRemoveService = [&](auto&, const auto&) { ++reports; };
    for (int round = 0; round < 5; ++round) {
        session.discovery->scheduleDiscoveryForConnectionTypes({"Fake", "Other"});
        turnUntil([&, limit = reports + 300] { return reports >= limit; });
        std::thread other([&] { session.discovery->stop(); });
        session.discovery->stop();
        other.join();
        session.heard.clear();
    }
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
    session.discovery->scheduleDiscoveryForConnectionTypes(kFake);
    EXPECT_TRUE(turnUntil([&, before = reports.load()] { return reports >= before + 2000; }));
}

TEST(DiscoveryFaults, ABackEndThatHangsInItsStopIsLeftBehind)
{
    DiscoveryHost host;
    std::latch gate(1);
    std::atomic<int> stops{0};
    host.backEnds.onStop = [&] {
        if (++stops == 1)
            gate.wait();
    };
    Session session({"Print", "Scan"});
    session.start(host, 2);
    session.discovery->stop();
    ASSERT_TRUE(session.hears(2));
    EXPECT_THAT(session.heard, ElementsAre("will start", "did stop"));
    EXPECT_EQ(session.discovery->sources()[1].state, State::stopped);
    gate.count_down();
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
}

TEST(DiscoveryFaults, ASynchronousRunMayBeStoppedAndBegunAnewFromAReport)
{
    DiscoveryHost host;
    host.backEnds.onStart = [&](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0." + std::to_string(host.backEnds.madeCount())));
        return 0U;
    };
    Session session({"Print"}, false);
    std::size_t innerFinds = 0;
    session.delegate->discoveryDidFindService = [&, isInner = false](ADMDiscovery& it, const auto&) mutable {
        if (std::exchange(isInner, true))
            return;
        it.stop();
        innerFinds = it.performDiscoveryForConnectionTypes(kFake, 1)->size();
    };
    const auto found = session.discovery->performDiscoveryForConnectionTypes({"Fake", "Fake"}, 5);
    EXPECT_EQ(innerFinds, 1U);
    ASSERT_EQ(found->size(), 1U);
    EXPECT_EQ(Session::hostOf(*found->front()), "10.0.0.1");
    EXPECT_FALSE(session.discovery->isStarted());
    EXPECT_FALSE(session.discovery->runLoop());
}

TEST(DiscoveryFaults, WhatClientsThrowOnTheDiscoveryThreadStaysThere)
{
    DiscoveryHost host;
    Session session;
    session.start(host);
    const auto backEnd = host.backEnds.alive()[0];
    session.discovery->setFilter(
        std::make_shared<TestFilter>([](auto&) -> bool { throw std::runtime_error("filter"); }));
    backEnd->report(serviceAt("10.0.0.1"));
    FakeServiceDiscovery::settle();
    session.discovery->setFilter(nullptr);
    // Without a run loop the delegate hears on the discovery thread, and may stop from there.
    session.discovery->scheduleInRunLoop(nullptr, dmf::kDefaultRunLoopMode);
    FakeServiceDiscovery::settle();
    std::atomic<int> heard{0};
    session.delegate->discoveryDidStop = nullptr;
    session.delegate->discoveryDidFindService = [&](ADMDiscovery& it, const auto&) {
        if (++heard == 2)
            it.stop();
        throw std::runtime_error("delegate");
    };
    backEnd->report(serviceAt("10.0.0.2"));
    backEnd->report(serviceAt("10.0.0.3"));
    backEnd->report(serviceAt("10.0.0.4"));
    EXPECT_TRUE(turnUntil([&] { return !session.discovery->isStarted(); }));
    FakeServiceDiscovery::settle();
    EXPECT_EQ(heard, 2);
}
