#include <dmf/platform/RunLoop.h>

#include <glib.h>

#include <atomic>
#include <future>
#include <optional>
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

namespace {

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
