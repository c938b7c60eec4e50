#include <dmf/ADMBaseDiscovery.h>

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <latch>
#include <thread>

#include "discovery/Session.h"
#include "support/Stopwatch.h"

using testing::ElementsAre;
using testing::UnorderedElementsAre;
using State = ADMDiscoverySource::State;

TEST(DiscoveryFaults, ASynchronousRunEndsWhenItIsStoppedAndGoesOnWhenAReportThrows)
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

    session.delegate->discoveryDidFindService = [](auto&, const auto&) { throw 5; };
    session.heard.clear();
    EXPECT_EQ(session.discovery->performDiscoveryForConnectionTypes(kFake, 1)->size(), 1U);
    EXPECT_THAT(session.heard, ElementsAre("will start", "did stop"));
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

TEST(DiscoveryFaults, ABackEndThatHangsInItsStopIsLeftBehindAndKeepsNobodyFromStopping)
{
    DiscoveryHost host;
    std::latch gate(1);
    std::atomic<int> stops{0};
    host.backEnds.onStop = [&] {
        if (++stops == 1)
            gate.wait();
    };
    Session session({"Echo", "Print", "Scan"});
    session.start(host, 3);
    session.discovery->stop();
    ASSERT_TRUE(session.hears(2));
    EXPECT_THAT(session.heard, ElementsAre("will start", "did stop"));
    const auto states = [&] {
        std::vector<State> all;
        for (const auto& source : session.discovery->sources())
            all.push_back(source.state);
        return all;
    };
    // Only what has stopped is told to have.
    const auto oneHangs = UnorderedElementsAre(State::stopping, State::stopped, State::stopped);
    EXPECT_TRUE(turnUntil([&] { return testing::Matches(oneHangs)(states()); })) << testing::PrintToString(states());

    // Neither the release nor another discovery waits for the one that hangs.
    auto released =
        std::async(std::launch::async, [it = std::exchange(session.discovery, nullptr)]() mutable { it.reset(); });
    EXPECT_EQ(released.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    Session another({"Print", "Scan"});
    another.discovery->scheduleDiscoveryForConnectionTypes({"Other"});
    ASSERT_TRUE(turnUntil([&] { return host.backEnds.alive().size() == 3; }));
    another.discovery->stop();
    EXPECT_EQ(host.backEnds.alive().size(), 1U);
    gate.count_down();
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
}

TEST(DiscoveryFaults, WhatRunsIsStoppedAtOnceWhileAnotherBackEndStarts)
{
    DiscoveryHost host;
    std::latch isStopped(1);
    std::atomic<bool> isCounted{false};
    host.backEnds.onStop = [&] {
        if (!isCounted.exchange(true))
            isStopped.count_down();
    };
    host.backEnds.onStart = [&](FakeServiceDiscovery& it) {
        if (it.serviceName() == "Scan")
            isStopped.wait(); // it needs the other one's end to go on
        return 0U;
    };
    Session session({"Print", "Scan"});
    session.discovery->scheduleDiscoveryForConnectionTypes(kFake);
    ASSERT_TRUE(turnUntil([&] { return host.backEnds.madeCount() == 2; }));
    const Stopwatch watch;
    session.discovery->stop();
    EXPECT_LT(watch.seconds(), 4.5); // milliseconds, with no limit reached
    for (const auto& source : session.discovery->sources())
        EXPECT_EQ(source.state, State::stopped);
}

TEST(DiscoveryFaults, ASynchronousRunKeepsItsLimitWhateverHangs)
{
    DiscoveryHost host;
    std::latch gate(1);
    host.backEnds.onStop = [&] { gate.wait(); };
    host.backEnds.onStart = [&](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0.1"));
        if (it.serviceName() == "Scan")
            gate.wait();
        return 0U;
    };
    Session session({"Print", "Scan"}, false);
    const Stopwatch watch;
    const auto found = session.discovery->performDiscoveryForConnectionTypes(kFake, 0.05);
    EXPECT_LT(watch.seconds(), 25); // five and a bit
    ASSERT_TRUE(found);
    EXPECT_EQ(found->size(), 1U);
    EXPECT_EQ(session.heard.back(), "did stop");
    for (const auto& source : session.discovery->sources())
        EXPECT_EQ(source.state, State::stopping);
    gate.count_down();
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
}

TEST(DiscoveryFaults, WhatABackEndThrowsIsItsOwnFailure)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) -> std::uint32_t {
        if (it.serviceName() == "Echo")
            throw 5;
        return 0;
    };
    host.backEnds.onStop = [stops = std::make_shared<std::atomic<int>>(0)] {
        if (++*stops == 1)
            throw "no way"; // NOLINT(hicpp-exception-baseclass)
    };
    Session session({"Echo", "Print", "Scan"});
    session.discovery->scheduleDiscoveryForConnectionTypes(kFake);
    ASSERT_TRUE(turnUntil([&] { return session.discovery->sources()[2].state == State::running; }));
    EXPECT_EQ(session.discovery->sources()[0].state, State::failed);
    EXPECT_EQ(session.discovery->sources()[0].error[kDMErrorDescription], "unknown");
    session.discovery->stop();
    std::vector<State> states;
    for (const auto& source : session.discovery->sources())
        states.push_back(source.state);
    EXPECT_THAT(states, UnorderedElementsAre(State::failed, State::failed, State::stopped));
}

TEST(DiscoveryFaults, FindsCountThoughTheDelegateHearsThemAtOnce)
{
    DiscoveryHost host;
    Session session;
    session.start(host);
    session.discovery->scheduleInRunLoop(nullptr, dmf::kDefaultRunLoopMode);
    std::atomic<int> heard{0};
    session.delegate->discoveryDidFindService = [&](auto&, const auto&) { ++heard; };
    session.delegate->discoveryDidRemoveService = [&](auto&, const auto&) { ++heard; };
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.1"));
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.2"));
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.2"), true);
    FakeServiceDiscovery::settle();
    EXPECT_EQ(heard, 3);
    EXPECT_EQ(session.discovery->sources()[0].finds, 2U);
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

TEST(DiscoveryFaults, TheEndOfASynchronousRunIsToldThoughTheRunIsOverBefore)
{
    DiscoveryHost host;
    std::latch gate(1);
    host.backEnds.onStop = [&] { gate.wait(); };
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0.1"));
        return 0U;
    };
    Session session;
    std::future<void> stopped;
    session.delegate->discoveryDidFindService = [&](auto&, const auto&) {
        stopped = std::async(std::launch::async, [&] { session.discovery->stop(); });
    };
    // Another thread ends it, and waits for the back end.
    EXPECT_EQ(session.discovery->performDiscoveryForConnectionTypes(kFake, 60)->size(), 1U);
    gate.count_down();
    ASSERT_TRUE(session.hears(2));
    EXPECT_THAT(session.heard, ElementsAre("will start", "did stop"));
}

TEST(DiscoveryFaults, WhatClientsThrowOnTheDiscoveryThreadStaysThere)
{
    DiscoveryHost host;
    Session session;
    session.start(host);
    const auto backEnd = host.backEnds.alive()[0];
    session.discovery->setFilter(std::make_shared<TestFilter>([](auto&) -> bool { throw 5; }));
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
        throw 5;
    };
    backEnd->report(serviceAt("10.0.0.2"));
    backEnd->report(serviceAt("10.0.0.3"));
    backEnd->report(serviceAt("10.0.0.4"));
    EXPECT_TRUE(turnUntil([&] { return !session.discovery->isStarted(); }));
    FakeServiceDiscovery::settle();
    EXPECT_EQ(heard, 2);
}
