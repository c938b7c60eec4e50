#include <dmf/platform/RunLoop.h>

#include <glib.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/Thread.h"
#include "support/DescriptorLimit.h"
#include "support/HostFixture.h"
#include "support/LoopThread.h"

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
    return Date::afterNow(30);
}

/// Runs what is due, without waiting.
Result turn(std::string_view mode = kMode)
{
    return RunLoop::current()->runMode(mode, Date::distantPast());
}

/// Counts how often the process's default context prepares to wait.
GSource* countingSource(int& turns)
{
    struct Counting {
        GSource base;
        int* turns;
    };
    static GSourceFuncs functions = {[](GSource* source, gint* timeout) -> gboolean {
                                         ++*reinterpret_cast<Counting*>(source)->turns;
                                         return *timeout = -1, FALSE;
                                     },
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};
    GSource* const source = g_source_new(&functions, sizeof(Counting));
    reinterpret_cast<Counting*>(source)->turns = &turns;
    g_source_attach(source, nullptr);
    return source;
}

/// The run loop of the thread, with sources that end with the test.
class RunLoopTest : public testing::Test {
protected:
    ~RunLoopTest() override
    {
        for (const auto& source : sources_)
            source->invalidate();
    }
    std::shared_ptr<RunLoopSource> add(std::function<void()> perform, std::string_view mode = kMode)
    {
        sources_.push_back(RunLoopSource::create(std::move(perform)));
        loop->addSource(sources_.back(), mode);
        return sources_.back();
    }
    std::shared_ptr<RunLoopSource> signalled(std::function<void()> perform, std::string_view mode = kMode)
    {
        add(std::move(perform), mode)->signal();
        return sources_.back();
    }

    const std::shared_ptr<RunLoop> loop = RunLoop::current();

private:
    std::vector<std::shared_ptr<RunLoopSource>> sources_;
};

} // namespace

TEST_F(RunLoopTest, SignalsAreServedOnceAndOnlyInTheModeThatRuns)
{
    int performed = 0;
    const auto source = signalled([&] { ++performed; });
    signalled([] { FAIL() << "served in a mode that it was not added to"; }, "another mode");
    loop->addSource(source, kMode);
    source->signal();
    EXPECT_EQ(turn(), Result::timedOut);
    EXPECT_EQ(performed, 1);
    source->signal();
    EXPECT_EQ(loop->runMode(kMode, soon(), true), Result::handledSource);
    source->invalidate();
    source->signal();
    EXPECT_EQ(loop->runMode(kMode, Date::distantFuture()), Result::finished);
    EXPECT_EQ(performed, 2);

    // What a callback throws reaches the caller, and the loop goes on.
    signalled([] { throw std::runtime_error("from a callback"); });
    signalled([&] { ++performed; });
    EXPECT_THROW(loop->runMode(kMode, soon()), std::runtime_error);
    EXPECT_EQ(turn(), Result::timedOut);
    EXPECT_EQ(performed, 3);
}

TEST_F(RunLoopTest, RunsNestAndStopEndsTheInnermost)
{
    std::vector<std::string> story;
    const auto note = [&](const char* what) {
        story.push_back(std::string(what) + " in " + loop->currentMode().value_or("none"));
    };
    signalled([&] {
        note("outer");
        signalled(
            [&] {
                note("inner");
                loop->stop();
            },
            "inner mode");
        EXPECT_EQ(loop->runMode("inner mode", soon()), Result::stopped);
        note("back");
        loop->stop();
    });
    signalled([&] { note("later"); });
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped);
    EXPECT_EQ(story, (std::vector<std::string>{"outer in test mode", "inner in inner mode", "back in test mode"}));
    EXPECT_EQ(loop->currentMode(), std::nullopt);

    EXPECT_EQ(turn(), Result::timedOut) << "a stop ends one run";
    EXPECT_EQ(story.back(), "later in test mode") << "what a stop left behind stays signalled";
    loop->stop();
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped) << "a stop between runs ends the next one";
}

TEST_F(RunLoopTest, CallbacksMayTakeEverythingAway)
{
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
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::finished) << "a run loop keeps its sources";
    EXPECT_EQ(sibling, nullptr);
    EXPECT_TRUE(self.expired());
}

TEST_F(RunLoopTest, TimersFireInTheOrderOfTheirDatesWhenTheClockSaysSo)
{
    using Repeat = RunLoopTimer::Repeat;
    HostFixture host;
    std::vector<std::string> fired;
    const auto timer = [&](const char* name, double delay, double interval, Repeat repeat) {
        const auto made = RunLoopTimer::create(Date::afterNow(delay), interval, repeat,
                                               [&fired, name](RunLoopTimer&) { fired.emplace_back(name); });
        loop->addTimer(made, kMode);
        return made;
    };
    timer("late", 20, 0, Repeat::no);
    timer("early", 10, 0, Repeat::no);
    const auto often = timer("often", 15, 10, Repeat::yes);
    const auto waiting = timer("waiting", 12, 0, Repeat::yes);
    const Date firstDate = often->fireDate();
    turn();
    EXPECT_TRUE(fired.empty());

    host.advance(21s);
    turn();
    EXPECT_EQ(fired, (std::vector<std::string>{"early", "waiting", "often", "late"}));
    EXPECT_EQ(waiting->fireDate(), Date::distantFuture());

    fired.clear();
    host.advance(32s); // at 53: the dates 25, 35 and 45 have passed, and count as one
    turn();
    EXPECT_EQ(fired, std::vector<std::string>{"often"});
    EXPECT_EQ(often->fireDate(), firstDate.addingTimeInterval(40));

    often->invalidate();
    waiting->invalidate();
    EXPECT_EQ(turn(), Result::finished);
}

TEST_F(RunLoopTest, ATimerDoesNotFireInsideItsOwnCallbackWhileOthersAreServed)
{
    int fired = 0;
    int served = 0;
    const auto other = add([&] { ++served; });
    const auto timer = RunLoopTimer::create(Date::distantPast(), 0, RunLoopTimer::Repeat::yes, [&](RunLoopTimer& it) {
        EXPECT_EQ(served, fired++);
        it.setFireDate(Date::distantPast());
        other->signal();
        EXPECT_EQ(turn(), Result::timedOut);
        EXPECT_EQ(served, fired);
    });
    loop->addTimer(timer, kMode);
    loop->addTimer(timer, "another mode");
    turn();
    turn("another mode");
    EXPECT_EQ(fired, 2);
    timer->invalidate();
    EXPECT_EQ(turn("another mode"), Result::finished);
}

TEST_F(RunLoopTest, WaitsNoLongerThanTheLimitAndUntilATimerIsDue)
{
    add({});
    const Date start = Date::now();
    EXPECT_EQ(loop->runMode(kMode, Date::afterNow(0.03)), Result::timedOut);
    EXPECT_GE(Date::now().timeIntervalSince(start), 0.029);
    const auto timer =
        RunLoopTimer::create(Date::afterNow(0.03), 0, RunLoopTimer::Repeat::no, [&](RunLoopTimer&) { loop->stop(); });
    loop->addTimer(timer, kMode);
    EXPECT_EQ(loop->runMode(kMode, soon()), Result::stopped);
    EXPECT_GE(Date::now().timeIntervalSince(start), 0.059);
}

TEST_F(RunLoopTest, OtherThreadsAddSignalRemoveAndStop)
{
    LoopThread other(kMode);
    std::promise<bool> performed;
    const auto source = RunLoopSource::create([&] { performed.set_value(other.loop()->isCurrent()); });
    source->signal();
    other.loop()->addSource(source, kMode);
    EXPECT_TRUE(performed.get_future().get());

    std::promise<void> fired;
    const auto timer = RunLoopTimer::create(Date::distantFuture(), 0, RunLoopTimer::Repeat::no,
                                            [&](RunLoopTimer&) { fired.set_value(); });
    other.loop()->addTimer(timer, kMode);
    timer->setFireDate(Date::now()); // the loop waits: it must be woken
    EXPECT_EQ(fired.get_future().wait_for(30s), std::future_status::ready);

    EXPECT_THROW(other.loop()->runMode(kMode, soon()), std::logic_error);
    EXPECT_EQ(other.end(), Result::stopped);
}

TEST_F(RunLoopTest, ALoopThatWaitsEndsWhenItsLastSourceGoes)
{
    for (const bool byInvalidating : {true, false}) {
        std::promise<std::shared_ptr<RunLoop>> started;
        const auto source = RunLoopSource::create([] {});
        auto result = std::async(std::launch::async, [&] {
            RunLoop::current()->addSource(source, kMode);
            started.set_value(RunLoop::current());
            return RunLoop::current()->runMode(kMode, soon());
        });
        const auto other = started.get_future().get();
        byInvalidating ? source->invalidate() : other->removeSource(source, kMode);
        EXPECT_EQ(result.get(), Result::finished);
    }
}

TEST_F(RunLoopTest, NoSignalIsLostHoweverManyThreadsSend)
{
    constexpr int kRounds = 2000;
    LoopThread other(kMode);
    std::atomic<int> sent{0};
    std::promise<void> all;
    const auto source = RunLoopSource::create([&, isTold = false]() mutable {
        if (sent == 2 * kRounds && !std::exchange(isTold, true))
            all.set_value();
    });
    other.loop()->addSource(source, kMode);
    const auto send = [&] {
        for (int i = 0; i < kRounds; ++i) {
            ++sent;
            source->signal();
            other.loop()->wakeUp();
        }
    };
    std::thread second(send);
    send();
    second.join();
    EXPECT_EQ(all.get_future().wait_for(30s), std::future_status::ready);
    other.end();
}

TEST_F(RunLoopTest, AddingAndInvalidatingRace)
{
    LoopThread other(kMode);
    std::vector<std::weak_ptr<RunLoopSource>> made;
    for (int i = 0; i < 200; ++i) {
        const auto source = RunLoopSource::create([kept = std::make_shared<int>(i)] { EXPECT_GE(*kept, 0); });
        made.push_back(source);
        source->signal();
        std::thread adder([&] {
            for (const char* mode : {kMode, "another mode"})
                other.loop()->addSource(source, mode);
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

TEST_F(RunLoopTest, AThreadsEndLetsGoOfItsLoopsSources)
{
    std::shared_ptr<RunLoop> ended;
    std::weak_ptr<RunLoopSource> source;
    std::thread([&] {
        ended = RunLoop::current();
        const auto made = RunLoopSource::create([] {});
        source = made;
        ended->addSource(made, kMode);
        ended->addSource(made, kDefaultRunLoopMode);
    }).join();
    EXPECT_TRUE(source.expired());
    const auto late = RunLoopSource::create([] {});
    ended->addSource(late, kMode);
    EXPECT_EQ(late.use_count(), 1);
}

TEST_F(RunLoopTest, TheHostsLoopTurnsTheDefaultModeAndNoOther)
{
    int defaultMode = 0;
    const auto hidden = signalled([] { FAIL() << "a private mode was turned from outside"; });
    const auto source = signalled([&] { ++defaultMode; }, kDefaultRunLoopMode);
    loop->wakeUp();
    while (defaultMode == 0)
        g_main_context_iteration(nullptr, TRUE);
    hidden->invalidate();

    // What the host has in its context is served by our default mode, and by no private one.
    int hosts = 0;
    const auto count = [](gpointer number) -> gboolean {
        ++*static_cast<int*>(number);
        return G_SOURCE_REMOVE;
    };
    g_idle_add_full(G_PRIORITY_HIGH, count, &hosts, nullptr);
    turn(kMode);
    EXPECT_EQ(hosts, 0);
    source->signal();
    turn(kDefaultRunLoopMode);
    EXPECT_EQ(hosts, 1);
    EXPECT_EQ(defaultMode, 2) << "a source of higher priority must not take the last turn from ours";
}

TEST_F(RunLoopTest, ADialogOfTheHostsIsServedWhateverTheRunAroundItWaitsFor)
{
    // Both ways in which a callback is reached: from a turn of the context, and in a last turn that the host's own
    // sources have taken. The dialog is one that a callback of ours opens, or one of the host's.
    const struct {
        bool isStopped, isLastTurn, isOpenedByHost;
    } rows[] = {{false, false, false}, {true, false, false}, {false, true, false}, {true, false, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.isStopped << row.isLastTurn << row.isOpenedByHost);
        int delivered = 0;
        int turns = 0;
        const auto inside = add([&] { ++delivered; }, kDefaultRunLoopMode);
        const auto dialog = [&] {
            if (row.isStopped)
                loop->stop();
            inside->signal();
            GMainLoop* const window = g_main_loop_new(nullptr, FALSE);
            // It takes its time, and goes to sleep meanwhile; the last of its turns would be thousands.
            g_timeout_add_full(
                G_PRIORITY_LOW, 50,
                [](gpointer it) -> gboolean { return g_main_loop_quit(static_cast<GMainLoop*>(it)), G_SOURCE_REMOVE; },
                window, nullptr);
            GSource* const counter = countingSource(turns);
            g_main_loop_run(window);
            g_source_destroy(counter);
            g_source_unref(counter);
            g_main_loop_unref(window);
        };
        if (row.isOpenedByHost) {
            std::function<void()> opened = dialog;
            g_idle_add_full(
                G_PRIORITY_HIGH,
                [](gpointer it) -> gboolean { return (*static_cast<std::function<void()>*>(it))(), G_SOURCE_REMOVE; },
                &opened, nullptr);
            EXPECT_EQ(loop->runMode(kDefaultRunLoopMode, soon()), Result::stopped);
        } else {
            const auto opener = signalled(dialog, kDefaultRunLoopMode);
            if (row.isLastTurn) {
                g_idle_add_full(
                    G_PRIORITY_HIGH, [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr, nullptr);
                EXPECT_EQ(turn(kDefaultRunLoopMode), Result::timedOut);
            } else {
                EXPECT_EQ(loop->runMode(kDefaultRunLoopMode, soon(), true),
                          row.isStopped ? Result::stopped : Result::handledSource);
            }
            opener->invalidate();
        }
        EXPECT_EQ(delivered, 1) << "the dialog's own turns deliver";
        EXPECT_LT(turns, 20) << "it does not turn in vain";
        inside->invalidate();
    }
}

TEST_F(RunLoopTest, WhatADialogsCallbackThrowsReachesTheRunAroundIt)
{
    bool isClosed = false;
    signalled(
        [&] {
            signalled([] { throw std::runtime_error("inside"); }, kDefaultRunLoopMode);
            g_main_context_iteration(nullptr, TRUE);
            isClosed = true;
        },
        kDefaultRunLoopMode);
    EXPECT_THROW(loop->runMode(kDefaultRunLoopMode, soon()), std::runtime_error);
    EXPECT_TRUE(isClosed);
}

TEST_F(RunLoopTest, WorksWithoutDescriptorsAndTakesAContextOnceThereAreSome)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the check of objects' types needs descriptors of its own";
#endif
    const auto isServed = [](std::string_view mode) {
        bool served = false;
        const auto source = RunLoopSource::create([&] { served = true; });
        RunLoop::current()->addSource(source, mode);
        source->signal();
        RunLoop::current()->runMode(mode, Date::distantPast());
        source->invalidate();
        return served;
    };
    (void)RunLoop::current(); // the main thread's is there already
    DescriptorLimit none(0);
    EXPECT_TRUE(isServed("a mode never seen before"));
    std::thread([&] { EXPECT_TRUE(isServed(kDefaultRunLoopMode)) << "on a thread of the host's"; }).join();

    bool isKept = false;
    const auto body = [&] {
        EXPECT_TRUE(isServed(kDefaultRunLoopMode)) << "on one of the library's";
        const auto early = RunLoopSource::create([&] { isKept = true; });
        RunLoop::current()->addSource(early, kDefaultRunLoopMode);
        none.lift();
        (void)RunLoop::current();
        early->signal();
        ASSERT_NE(g_main_context_get_thread_default(), nullptr);
        g_main_context_iteration(g_main_context_get_thread_default(), FALSE);
    };
    pthread_t thread{};
    ASSERT_EQ(dmf::internal::startThread("test", dmf::internal::ThreadForm::joinable, body, &thread), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_TRUE(isKept) << "what was scheduled before the context came";
}

TEST_F(RunLoopTest, AThreadsOwnDefaultContextIsItsDefaultMode)
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
