#include <dmf/platform/RunLoop.h>

#include <glib.h>

#include <atomic>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/HostFixture.h"

using dmf::Date;
using dmf::kDefaultRunLoopMode;
using dmf::RunLoop;
using dmf::RunLoopSource;
using dmf::RunLoopTimer;
using namespace std::chrono_literals;
using Result = RunLoop::Result;

namespace {

constexpr const char* kMode = "test mode";

/// A bound for everything that ought to end by itself.
Date soon()
{
    return Date::afterNow(10);
}

/// Runs what is due, without waiting.
Result turn(std::string_view mode = kMode)
{
    return RunLoop::current()->runMode(mode, Date::distantPast());
}

/// A run loop on a thread of its own that turns until it goes.
class LoopThread {
public:
    LoopThread()
    {
        std::promise<std::shared_ptr<RunLoop>> started;
        auto loop = started.get_future();
        thread_ = std::thread([this, &started] {
            const auto keepAlive = RunLoopSource::create({});
            RunLoop::current()->addSource(keepAlive, kMode);
            started.set_value(RunLoop::current());
            result_ = RunLoop::current()->runMode(kMode, soon());
        });
        loop_ = loop.get();
    }
    ~LoopThread() { end(); }
    Result end()
    {
        if (thread_.joinable()) {
            loop_->stop();
            thread_.join();
        }
        return result_;
    }
    const std::shared_ptr<RunLoop>& loop() const { return loop_; }
    std::thread::id id() const { return thread_.get_id(); }

private:
    std::shared_ptr<RunLoop> loop_;
    Result result_ = Result::finished;
    std::thread thread_;
};

} // namespace

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

TEST(RunLoop, OtherThreadsAddSignalRemoveAndStop)
{
    LoopThread other;
    std::promise<std::thread::id> performedOn;
    const auto source = RunLoopSource::create([&] { performedOn.set_value(std::this_thread::get_id()); });
    source->signal();
    other.loop()->addSource(source, kMode);
    EXPECT_EQ(performedOn.get_future().get(), other.id());

    std::promise<void> fired;
    const auto timer = RunLoopTimer::create(Date::distantFuture(), 0, RunLoopTimer::Repeat::no,
                                            [&](RunLoopTimer&) { fired.set_value(); });
    other.loop()->addTimer(timer, kMode);
    timer->setFireDate(Date::now()); // the loop waits: it must be woken
    EXPECT_EQ(fired.get_future().wait_for(10s), std::future_status::ready);

    EXPECT_FALSE(other.loop()->isCurrent());
    EXPECT_THROW(other.loop()->runMode(kMode, soon()), std::logic_error);
    EXPECT_EQ(other.end(), Result::stopped);
}

TEST(RunLoop, ALoopThatWaitsEndsWhenItsLastSourceGoes)
{
    for (const bool byInvalidating : {true, false}) {
        std::promise<std::shared_ptr<RunLoop>> started;
        const auto source = RunLoopSource::create([] {});
        auto result = std::async(std::launch::async, [&] {
            RunLoop::current()->addSource(source, kMode);
            started.set_value(RunLoop::current());
            return RunLoop::current()->runMode(kMode, soon());
        });
        const auto loop = started.get_future().get();
        if (byInvalidating)
            source->invalidate();
        else
            loop->removeSource(source, kMode);
        EXPECT_EQ(result.get(), Result::finished);
    }
}

TEST(RunLoop, NoSignalIsLostHoweverManyThreadsSend)
{
    constexpr int kRounds = 2000;
    LoopThread other;
    std::atomic<int> sent{0};
    std::atomic<int> seen{0};
    int plain = 0; // handed over by the signal alone, so a missing order shows under the thread checker
    std::mutex lock;
    std::promise<void> all;
    const auto source = RunLoopSource::create([&] {
        std::lock_guard guard(lock);
        if (seen.exchange(plain) != 2 * kRounds && plain == 2 * kRounds)
            all.set_value();
    });
    other.loop()->addSource(source, kMode);
    const auto send = [&] {
        for (int i = 0; i < kRounds; ++i) {
            {
                std::lock_guard guard(lock);
                ++plain;
            }
            source->signal();
            other.loop()->wakeUp();
        }
    };
    std::thread first(send);
    std::thread second(send);
    first.join();
    second.join();
    EXPECT_EQ(all.get_future().wait_for(10s), std::future_status::ready);
}

TEST(RunLoop, AddingAndInvalidatingRace)
{
    LoopThread other;
    std::vector<std::weak_ptr<RunLoopSource>> made;
    for (int i = 0; i < 200; ++i) {
        const auto source = RunLoopSource::create([kept = std::make_shared<int>(i)] { EXPECT_GE(*kept, 0); });
        made.push_back(source);
        std::thread adder([&] {
            source->signal();
            other.loop()->addSource(source, kMode);
            other.loop()->addSource(source, "another mode");
        });
        source->invalidate();
        adder.join();
    }
    std::promise<void> turned;
    const auto last = RunLoopSource::create([&] { turned.set_value(); });
    last->signal();
    other.loop()->addSource(last, kMode);
    turned.get_future().get();
    for (const auto& source : made)
        EXPECT_TRUE(source.expired()) << "an invalid source must not stay in a loop";
}

TEST(RunLoop, AThreadsEndLetsGoOfItsLoopsSources)
{
    std::shared_ptr<RunLoop> loop;
    std::weak_ptr<RunLoopSource> source;
    std::thread([&] {
        loop = RunLoop::current();
        const auto made = RunLoopSource::create([] {});
        source = made;
        loop->addSource(made, kMode);
        loop->addSource(made, kDefaultRunLoopMode);
    }).join();
    EXPECT_TRUE(source.expired());
    const auto late = RunLoopSource::create([] {});
    loop->addSource(late, kMode);
    EXPECT_EQ(late.use_count(), 1);
    loop->wakeUp();
    loop->stop();
}

TEST(RunLoop, TheHostsLoopTurnsTheDefaultModeAndNoOther)
{
    int defaultMode = 0;
    const auto loop = RunLoop::current();
    std::optional<std::string> modeSeen = "none yet";
    const auto source = RunLoopSource::create([&] {
        ++defaultMode;
        modeSeen = loop->currentMode();
    });
    const auto hidden = RunLoopSource::create([] { FAIL() << "a private mode was turned from outside"; });
    loop->addSource(source, kDefaultRunLoopMode);
    loop->addSource(hidden, kMode);
    source->signal();
    hidden->signal();
    loop->wakeUp();
    while (defaultMode == 0)
        g_main_context_iteration(nullptr, TRUE);
    EXPECT_EQ(modeSeen, std::nullopt);
    hidden->invalidate();

    // What the host has in its context is served by our default mode, and by no private one.
    int hosts = 0;
    g_idle_add_full(
        G_PRIORITY_HIGH,
        [](gpointer count) -> gboolean {
            ++*static_cast<int*>(count);
            return G_SOURCE_REMOVE;
        },
        &hosts, nullptr);
    turn(kMode);
    EXPECT_EQ(hosts, 0);
    source->signal();
    turn(kDefaultRunLoopMode);
    EXPECT_EQ(hosts, 1);
    EXPECT_EQ(defaultMode, 2) << "a source of higher priority must not take the last turn from ours";
    source->invalidate();
}

TEST(RunLoop, AThreadsOwnDefaultContextIsItsDefaultMode)
{
    std::thread([] {
        GMainContext* const context = g_main_context_new();
        g_main_context_push_thread_default(context);
        int performed = 0;
        const auto source = RunLoopSource::create([&] { ++performed; });
        RunLoop::current()->addSource(source, kDefaultRunLoopMode);
        source->signal();
        g_main_context_iteration(context, FALSE);
        EXPECT_EQ(performed, 1);
        source->invalidate();
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }).join();
    std::thread([] {
        const auto source = RunLoopSource::create([] { FAIL() << "it was served by the process's default context"; });
        RunLoop::current()->addSource(source, kDefaultRunLoopMode);
        source->signal();
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        EXPECT_EQ(g_main_context_get_thread_default(), nullptr) << "a host's thread is left as it is";
    }).join();
}
