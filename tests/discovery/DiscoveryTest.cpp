#include <dmf/ADMBaseDiscovery.h>

#include <gmock/gmock.h>

#include <future>
#include <stdexcept>

#include "discovery/Session.h"
#include "support/LogCapture.h"
#include "support/Stopwatch.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using State = ADMDiscoverySource::State;

TEST(Discovery, ProtocolsHaveTheirChannelsAndTypesTheirParameters)
{
    for (const auto* name : {"HDT", "PML", "PRINT", "VSTATUS"})
        EXPECT_EQ(ADMBaseDiscovery::channelNameForProtocol(name), "Print") << name;
    EXPECT_EQ(ADMBaseDiscovery::channelNameForProtocol("EWS"), "Embedded Web Server");
    const auto discovery = ADMBaseDiscovery::initWithChannelNames({"Print", "Print", "Scan"});
    EXPECT_THAT(discovery->channelNames(), UnorderedElementsAre("Print", "Scan"));
    discovery->setParametersToResolve(dmf::Dictionary{{"x", true}}, "IP");
    discovery->setParametersToResolve(std::nullopt, "QLIP");
    discovery->setParametersToResolve(std::nullopt, std::nullopt);
    EXPECT_EQ(discovery->connectionsParametersToResolve().size(), 3U);
    EXPECT_EQ(*discovery->connectionsParametersToResolve()["IP"].asDictionary(), (dmf::Dictionary{{"x", true}}));
}

TEST(Discovery, RunLoopAndModesFollowTheScheduling)
{
    const auto here = dmf::RunLoop::current();
    const auto there = std::async(std::launch::async, [] { return dmf::RunLoop::current(); }).get();
    const auto discovery = ADMBaseDiscovery::initWithChannelNames({"Print"});
    discovery->scheduleInRunLoop(here, "A");
    discovery->scheduleInRunLoop(here, "B");
    discovery->scheduleInRunLoop(here, std::nullopt);
    EXPECT_THAT(discovery->runLoopModes(), ElementsAre("A", "B"));
    discovery->removeFromRunLoop(there, "A");
    discovery->removeFromRunLoop(here, "B");
    discovery->removeFromRunLoop(here, std::nullopt);
    EXPECT_THAT(discovery->runLoopModes(), ElementsAre("A"));
    discovery->scheduleInRunLoop(there, "C");
    EXPECT_EQ(discovery->runLoop(), there);
    EXPECT_THAT(discovery->runLoopModes(), ElementsAre("C"));
    discovery->scheduleInRunLoop(nullptr, "D");
    EXPECT_FALSE(discovery->runLoop());
    EXPECT_THAT(discovery->runLoopModes(), IsEmpty());
}

TEST(Discovery, ReportsComeOnTheClientsThreadInOrderAndEndWithTheStop)
{
    DiscoveryHost host;
    const LogCapture log(host);
    Session session({"Print", "Scan"});
    session.discovery->setParameters({{"depth", 2}});
    session.discovery->setParametersToResolve(dmf::Dictionary{{"deviceName", true}}, "Fake");
    session.start(host, 2);
    EXPECT_TRUE(session.discovery->isStarted());
    const auto backEnds = host.backEnds.alive();
    EXPECT_EQ(backEnds[0]->serviceName(), "Print");
    EXPECT_EQ(backEnds[1]->serviceName(), "Scan");
    EXPECT_EQ(backEnds[0]->connectionType(), "Fake");
    EXPECT_EQ(backEnds[0]->parameters()["depth"], 2);
    EXPECT_EQ(backEnds[0]->resolveParameters(), (dmf::Dictionary{{"deviceName", true}}));

    const auto first = serviceAt("10.0.0.1");
    const auto second = serviceAt("10.0.0.2");
    backEnds[0]->report(first);
    backEnds[1]->report(second);
    backEnds[0]->report(first, true);
    FakeServiceDiscovery::settle();
    EXPECT_EQ(first->serviceState(), 2U);
    EXPECT_EQ(second->serviceState(), 1U);
    EXPECT_EQ(session.discovery->sources()[1].finds, 1U);
    session.discovery->stop();
    EXPECT_FALSE(session.discovery->isStarted());
    backEnds[0]->report(serviceAt("10.0.0.3"));
    FakeServiceDiscovery::settle();
    ASSERT_TRUE(session.hears(5));
    session.discovery->stop();
    dmf::RunLoop::current()->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now());
    EXPECT_THAT(session.heard,
                ElementsAre("will start", "found 10.0.0.1", "found 10.0.0.2", "lost 10.0.0.1", "did stop"));
    EXPECT_EQ(session.discovery->sources()[0].state, State::stopped);
    EXPECT_THAT(log.lines(), testing::Contains(testing::MatchesRegex("D  Discovery: discovery .* did stop")));
}

TEST(Discovery, IsRefusedWithoutARunLoopAndWhileItRuns)
{
    DiscoveryHost host;
    const LogCapture log(host);
    Session session({"Print"}, false);
    session.discovery->scheduleDiscovery();
    EXPECT_THAT(session.heard, ElementsAre("Discovery is not scheduled in any run loop or mode"));
    EXPECT_FALSE(session.discovery->isStarted());
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::MatchesRegex("W  Discovery:  discovery .* is not started because run loop or "
                                                  "modes are nil \\(run loop .*, modes .*\\).")));

    session.discovery->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    session.heard.clear();
    session.start(host);
    session.discovery->scheduleDiscovery();
    EXPECT_FALSE(session.discovery->performDiscoveryWithTimeout(1));
    ASSERT_TRUE(session.hears(3));
    EXPECT_THAT(session.heard, ElementsAre("will start", "Discovery running allready", "Discovery running allready"));
}

TEST(Discovery, ReportsWaitForAModeInWhichItIsScheduled)
{
    DiscoveryHost host;
    Session session({"Print"}, false);
    const auto loop = dmf::RunLoop::current();
    session.discovery->scheduleInRunLoop(loop, "private");
    session.start(host);
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.1"));
    FakeServiceDiscovery::settle();
    EXPECT_THAT(session.heard, IsEmpty());
    // Reports stay in the modes in which they were made.
    session.discovery->scheduleInRunLoop(loop, "later");
    session.discovery->removeFromRunLoop(loop, "private");
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.2"));
    FakeServiceDiscovery::settle();
    loop->runMode("private", dmf::Date::now());
    EXPECT_THAT(session.heard, ElementsAre("will start", "found 10.0.0.1"));
    loop->runMode("later", dmf::Date::now());
    EXPECT_THAT(session.heard, ElementsAre("will start", "found 10.0.0.1", "found 10.0.0.2"));
}

TEST(Discovery, AFilterDropsServicesUntouched)
{
    DiscoveryHost host;
    const LogCapture log(host);
    Session session;
    const auto filter =
        std::make_shared<TestFilter>([](auto& service) { return Session::hostOf(service) == "10.0.0.2"; });
    session.discovery->setFilter(filter);
    session.discovery->setFilter(filter);
    session.start(host);
    const auto dropped = serviceAt("10.0.0.1");
    host.backEnds.alive()[0]->report(dropped);
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.2"));
    host.backEnds.alive()[0]->report(dropped, true);
    FakeServiceDiscovery::settle();
    ASSERT_TRUE(session.hears(3));
    EXPECT_EQ(dropped->serviceState(), 0U);
    EXPECT_EQ(session.discovery->sources()[0].finds, 1U);
    session.discovery->invalidate(); // which tells the end at once
    EXPECT_THAT(session.heard, ElementsAre("filter", "will start", "found 10.0.0.2", "did stop"));
    EXPECT_FALSE(session.discovery->runLoop());
}

TEST(Discovery, EachSourceTellsWhatBecameOfIt)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) -> std::uint32_t {
        if (it.serviceName() == "Broken")
            throw std::runtime_error("no bus");
        return it.serviceName() == "Scan" ? 7 : 0;
    };
    Session session({"Broken", "Print", "Scan"});
    session.discovery->scheduleDiscoveryForConnectionTypes({"Nowhere", "Fake"});
    ASSERT_TRUE(session.hears(1));
    ASSERT_TRUE(turnUntil([&] { return session.discovery->sources()[5].state == State::failed; }));
    const auto sources = session.discovery->sources();
    EXPECT_EQ(sources[0].connectionType, "Nowhere");
    EXPECT_EQ(sources[0].state, State::missing);
    EXPECT_EQ(sources[3].state, State::failed);
    EXPECT_EQ(sources[3].error[kDMErrorDescription], "no bus");
    EXPECT_EQ(sources[4].state, State::running);
    EXPECT_EQ(sources[4].channelName, "Print");
    EXPECT_EQ(sources[5].error[kDMErrorCode], 7);
    // Failures stay without a report.
    EXPECT_THAT(session.heard, ElementsAre("will start"));
}

TEST(Discovery, ASynchronousRunEndsWhenNothingMoreComes)
{
    DiscoveryHost host;
    Session session({"Print"}, false);
    session.discovery->scheduleInRunLoop(dmf::RunLoop::current(), "kept");
    // Three services, one every 0.2 s: each extends the run.
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        const auto timer =
            dmf::RunLoopTimer::create(dmf::Date::now().addingTimeInterval(0.2), 0.2, dmf::RunLoopTimer::Repeat::yes,
                                      [weak = it.weak_from_this(), count = 0](dmf::RunLoopTimer& own) mutable {
                                          const auto back = weak.lock();
                                          if (!back || count == 3)
                                              return own.invalidate();
                                          back->announceService(serviceAt("10.0.0." + std::to_string(++count)), false);
                                      });
        ADMServiceDiscoveryBase::runloop()->addTimer(timer, dmf::kDefaultRunLoopMode);
        it.report(serviceAt("10.0.0.9"));
        it.report(serviceAt("10.0.0.9")); // twice is once
        it.report(serviceAt("10.0.0.8"));
        it.report(serviceAt("10.0.0.8"), true);
        return 0U;
    };
    const Stopwatch watch;
    const auto found = session.discovery->performDiscoveryForConnectionTypes(kFake, 1.5);
    ASSERT_TRUE(found);
    Names hosts;
    for (const auto& service : *found)
        hosts.push_back(Session::hostOf(*service));
    EXPECT_THAT(hosts, UnorderedElementsAre("10.0.0.9", "10.0.0.1", "10.0.0.2", "10.0.0.3"));
    EXPECT_GE(watch.seconds(), 2.0);
    // The delegate heard it all within the call, and the scheduling is as it was.
    EXPECT_EQ(session.heard.front(), "will start");
    EXPECT_EQ(session.heard.back(), "did stop");
    EXPECT_EQ(session.heard.size(), 9U);
    EXPECT_THAT(session.discovery->runLoopModes(), ElementsAre("kept"));
    EXPECT_FALSE(session.discovery->isStarted());
    EXPECT_TRUE(host.backEnds.alive().empty());
}
