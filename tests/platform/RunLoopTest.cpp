#include <dmf/platform/RunLoop.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "RunLoopSupport.h"
#include "support/HostFixture.h"

using dmf::Date;
using dmf::kDefaultRunLoopMode;
using dmf::RunLoop;
using dmf::RunLoopSource;
using dmf::RunLoopTimer;
using namespace std::chrono_literals;
using Result = RunLoop::Result;
using runlooptest::kMode;
using runlooptest::soon;
using runlooptest::turn;

TEST(RunLoop, AModeWithoutSourcesEndsAtOnce)
{
    EXPECT_EQ(RunLoop::current()->runMode("never used", Date::distantFuture()), Result::finished);
    const auto source = RunLoopSource::create({});
    RunLoop::current()->addSource(source, kMode);
    EXPECT_EQ(turn(), Result::timedOut);
    RunLoop::current()->removeSource(source, kMode);
    EXPECT_EQ(RunLoop::current()->runMode(kMode, Date::distantFuture()), Result::finished);
}

TEST(RunLoop, SignalsAreServedOnceAndOnlyInTheModeThatRuns)
{
    int performed = 0;
    const auto source = RunLoopSource::create([&] { ++performed; });
    const auto other = RunLoopSource::create([] { FAIL() << "served in a mode that it was not added to"; });
    const auto loop = RunLoop::current();
    loop->addSource(source, kMode);
    loop->addSource(source, kMode);
    loop->addSource(other, "another mode");
    other->signal();
    source->signal();
    source->signal();
    EXPECT_EQ(turn(), Result::timedOut);
    EXPECT_EQ(performed, 1);

    source->signal();
    EXPECT_EQ(loop->runMode(kMode, soon(), true), Result::handledSource);
    EXPECT_EQ(performed, 2);
    source->invalidate();
    other->invalidate();
    source->signal();
    EXPECT_EQ(turn(), Result::finished);
    EXPECT_EQ(performed, 2);
    loop->addSource(source, kMode);
    EXPECT_EQ(turn(), Result::finished) << "an invalid source must not be added";
}

TEST(RunLoop, RunsNestAndStopEndsTheInnermost)
{
    const auto loop = RunLoop::current();
    std::vector<std::string> story;
    const auto note = [&](const char* what) {
        story.push_back(std::string(what) + " in " + loop->currentMode().value_or("none"));
    };
    const auto inner = RunLoopSource::create([&] {
        note("inner");
        loop->stop();
    });
    const auto outer = RunLoopSource::create([&] {
        note("outer");
        loop->addSource(inner, "inner mode");
        inner->signal();
        EXPECT_EQ(loop->runMode("inner mode", soon()), Result::stopped);
        note("back");
        loop->stop();
    });
    const auto unreached = RunLoopSource::create([&] { note("later"); });
    loop->addSource(outer, kMode);
    loop->addSource(unreached, kMode);
    outer->signal();
    unreached->signal();
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped);
    EXPECT_EQ(story, (std::vector<std::string>{"outer in test mode", "inner in inner mode", "back in test mode"}));
    EXPECT_EQ(loop->currentMode(), std::nullopt);

    EXPECT_EQ(turn(), Result::timedOut) << "a stop ends one run";
    EXPECT_EQ(story.back(), "later in test mode") << "what a stop left behind stays signalled";
    loop->stop();
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped) << "a stop between runs ends the next one";
    for (const auto& source : {inner, outer, unreached})
        source->invalidate();
}

TEST(RunLoop, ARunOfTheSameModeInsideACallbackServesTheOthers)
{
    const auto loop = RunLoop::current();
    std::vector<int> order;
    const auto second = RunLoopSource::create([&] { order.push_back(2); });
    const auto first = RunLoopSource::create([&] {
        order.push_back(1);
        EXPECT_EQ(turn(), Result::timedOut);
        order.push_back(3);
    });
    loop->addSource(first, kMode);
    loop->addSource(second, kMode);
    first->signal();
    second->signal();
    turn();
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
    first->invalidate();
    second->invalidate();
}

TEST(RunLoop, WhatACallbackThrowsReachesTheCallerAndTheLoopGoesOn)
{
    const auto loop = RunLoop::current();
    int performed = 0;
    const auto bad = RunLoopSource::create([] { throw std::runtime_error("from a callback"); });
    const auto good = RunLoopSource::create([&] { ++performed; });
    loop->addSource(bad, kMode);
    loop->addSource(good, kMode);
    bad->signal();
    good->signal();
    EXPECT_THROW(loop->runMode(kMode, soon()), std::runtime_error);
    EXPECT_EQ(loop->currentMode(), std::nullopt);
    EXPECT_EQ(turn(), Result::timedOut);
    EXPECT_EQ(performed, 1);
    bad->invalidate();
    good->invalidate();
}

TEST(RunLoop, CallbacksMayTakeEverythingAway)
{
    const auto loop = RunLoop::current();
    std::weak_ptr<RunLoopSource> self;
    std::shared_ptr<RunLoopSource> sibling = RunLoopSource::create([] { FAIL() << "it was taken away before"; });
    {
        const auto source = RunLoopSource::create([&self, &sibling, kept = std::make_shared<int>(5)] {
            sibling->invalidate();
            sibling.reset();
            self.lock()->invalidate();
            EXPECT_EQ(*kept, 5) << "the callback's own objects live until it returns";
        });
        self = source;
        loop->addSource(source, kMode);
        loop->addSource(sibling, kMode);
        source->signal();
        sibling->signal();
    }
    EXPECT_FALSE(self.expired()) << "a run loop keeps its sources";
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::finished);
    EXPECT_TRUE(self.expired());
}

TEST(RunLoop, TimersFireInTheOrderOfTheirDatesWhenTheClockSaysSo)
{
    HostFixture host;
    const auto loop = RunLoop::current();
    std::vector<std::string> fired;
    const auto timer = [&](const char* name, double delay, double interval, RunLoopTimer::Repeat repeat) {
        return RunLoopTimer::create(Date::afterNow(delay), interval, repeat,
                                    [&fired, name](RunLoopTimer&) { fired.emplace_back(name); });
    };
    const auto late = timer("late", 20, 0, RunLoopTimer::Repeat::no);
    const auto early = timer("early", 10, 0, RunLoopTimer::Repeat::no);
    const auto often = timer("often", 15, 10, RunLoopTimer::Repeat::yes);
    const auto waiting = timer("waiting", 12, 0, RunLoopTimer::Repeat::yes);
    const Date firstDate = often->fireDate();
    for (const auto& it : {late, early, often, waiting})
        loop->addTimer(it, kMode);
    turn();
    EXPECT_TRUE(fired.empty());

    host.advance(21s);
    turn();
    EXPECT_EQ(fired, (std::vector<std::string>{"early", "waiting", "often", "late"}));
    EXPECT_FALSE(early->isValid());
    EXPECT_TRUE(waiting->isValid());
    EXPECT_EQ(waiting->fireDate(), Date::distantFuture());
    EXPECT_EQ(often->fireDate(), firstDate.addingTimeInterval(10));

    fired.clear();
    host.advance(32s); // at 53: the dates 25, 35 and 45 have passed, and count as one
    turn();
    EXPECT_EQ(fired, std::vector<std::string>{"often"});
    EXPECT_EQ(often->fireDate(), firstDate.addingTimeInterval(40));

    waiting->setFireDate(Date::distantPast());
    turn();
    turn();
    EXPECT_EQ(fired, (std::vector<std::string>{"often", "waiting"}));
    often->invalidate();
    waiting->invalidate();
    EXPECT_EQ(turn(), Result::finished);
}

TEST(RunLoop, ATimerDoesNotFireInsideItsOwnCallback)
{
    int fired = 0;
    const auto timer = RunLoopTimer::create(Date::distantPast(), 0, RunLoopTimer::Repeat::yes, [&](RunLoopTimer& it) {
        ++fired;
        it.setFireDate(Date::distantPast());
        EXPECT_EQ(turn(), Result::timedOut);
    });
    RunLoop::current()->addTimer(timer, kMode);
    RunLoop::current()->addTimer(timer, "another mode");
    turn();
    EXPECT_EQ(fired, 1);
    turn("another mode");
    EXPECT_EQ(fired, 2);
    timer->invalidate();
    EXPECT_EQ(turn(), Result::finished);
    EXPECT_EQ(turn("another mode"), Result::finished);
}

TEST(RunLoop, WaitsNoLongerThanTheLimitAndUntilATimerIsDue)
{
    const auto keepAlive = RunLoopSource::create({});
    const auto loop = RunLoop::current();
    loop->addSource(keepAlive, kMode);
    const Date start = Date::now();
    EXPECT_EQ(loop->runMode(kMode, Date::afterNow(0.03)), Result::timedOut);
    EXPECT_GE(Date::now().timeIntervalSince(start), 0.029);
    const auto timer = RunLoopTimer::create(Date::afterNow(0.03), 0, RunLoopTimer::Repeat::no,
                                            [](RunLoopTimer&) { RunLoop::current()->stop(); });
    loop->addTimer(timer, kMode);
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped);
    EXPECT_GE(Date::now().timeIntervalSince(start), 0.059);
    keepAlive->invalidate();
}
