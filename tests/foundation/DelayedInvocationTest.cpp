#include <dmf/ADMDelayedInvocationQueue.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/HostFixture.h"

using dmf::Date;
using dmf::RunLoop;
using namespace std::chrono_literals;

namespace {

constexpr const char* kMode = "delayed mode";

class DelayedInvocation : public testing::Test {
protected:
    DelayedInvocation() { queue->scheduleInRunLoop(RunLoop::current(), kMode); }
    ~DelayedInvocation() override { queue->invalidate(); }

    std::function<void()> note(std::string what)
    {
        return [this, what = std::move(what)] { calls.push_back(what); };
    }
    static void turn() { RunLoop::current()->runMode(kMode, Date::distantPast()); }

    HostFixture host;
    std::shared_ptr<ADMDelayedInvocationQueue> queue = ADMDelayedInvocationQueue::queue();
    std::vector<std::string> calls;
};

} // namespace

TEST_F(DelayedInvocation, CallsAreMadeByDateAndOneATurn)
{
    const Date start = Date::now();
    queue->schedulePerformInvocation(note("ten"), start.addingTimeInterval(10));
    queue->schedulePerformInvocation(note("five, first"), start.addingTimeInterval(5));
    queue->schedulePerformInvocation(note("five, second"), start.addingTimeInterval(5));
    queue->schedulePerformInvocation(note("at once"), std::nullopt);
    queue->schedulePerformInvocation(note("at once, second"), std::nullopt);
    queue->schedulePerformInvocation({}, std::nullopt);
    turn();
    EXPECT_EQ(calls, std::vector<std::string>{"at once"});
    turn();
    EXPECT_EQ(queue->nextDelayedInvocationTimerFireDate(), start.addingTimeInterval(5));
    host.advance(11s);
    for (int i = 0; i < 4; ++i)
        turn();
    EXPECT_EQ(calls, (std::vector<std::string>{"at once", "at once, second", "five, first", "five, second", "ten"}));
    EXPECT_FALSE(queue->hasPendingPerformRequests());
    EXPECT_EQ(queue->delayedInvocationTimer()->fireDate(), Date::distantFuture());
}

TEST_F(DelayedInvocation, OperationsOfATargetKeepItAlive)
{
    struct Target {
        std::vector<std::string>& calls;
        void tell() { calls.emplace_back("told"); }
        void tellLast() const { calls.emplace_back("told last"); }
    };
    auto target = std::make_shared<Target>(Target{calls});
    const std::weak_ptr<Target> weak = target;
    queue->schedulePerformSelectorOncePreviousPeformRequestsComplete(&Target::tell, target);
    EXPECT_EQ(queue->nextDelayedInvocationTimerFireDate(), Date::distantPast()) << "nothing comes before it";
    queue->cancelPreviousPerformRequests();
    queue->schedulePerformSelector(&Target::tell, target, 5.0);
    queue->schedulePerformSelectorOncePreviousPeformRequestsComplete(&Target::tellLast, target);
    queue->schedulePerformSelector(&Target::tell, std::shared_ptr<Target>(), std::nullopt);
    target.reset();
    EXPECT_FALSE(weak.expired());
    host.advance(6s);
    for (int i = 0; i < 3; ++i)
        turn();
    EXPECT_EQ(calls, (std::vector<std::string>{"told", "told last"}));
    EXPECT_TRUE(weak.expired());
}

TEST_F(DelayedInvocation, ExecutingMakesTheCallsThatWerePendingAndNoOthers)
{
    queue->schedulePerformInvocation(
        [&] {
            EXPECT_FALSE(queue->hasPendingPerformRequests()) << "old entries are out of sight";
            calls.emplace_back("first");
            queue->schedulePerformInvocation(note("new"), std::nullopt);
        },
        Date::afterNow(100));
    queue->schedulePerformInvocation(note("second"), Date::afterNow(200));
    queue->executePreviousPerformRequests();
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "second"}));
    EXPECT_TRUE(queue->hasPendingPerformRequests());
    queue->cancelPreviousPerformRequests();
    EXPECT_FALSE(queue->hasPendingPerformRequests());
    turn();
    EXPECT_EQ(calls.size(), 2u);
}

TEST_F(DelayedInvocation, TheQueueMayEndInsideACall)
{
    queue->schedulePerformInvocation(
        [&] {
            queue->invalidate();
            queue = ADMDelayedInvocationQueue::queue();
            calls.emplace_back("ended");
        },
        std::nullopt);
    queue->schedulePerformInvocation(note("dropped"), std::nullopt);
    turn();
    EXPECT_EQ(RunLoop::current()->runMode(kMode, Date::distantPast()), RunLoop::Result::finished);
    EXPECT_EQ(calls, std::vector<std::string>{"ended"});
}

TEST_F(DelayedInvocation, TheRunLoopKeepsTheQueueWhileItIsScheduled)
{
    const std::weak_ptr<ADMDelayedInvocationQueue> watched = queue;
    queue->schedulePerformInvocation(note("kept"), std::nullopt);
    queue = ADMDelayedInvocationQueue::queue();
    turn();
    EXPECT_EQ(calls, std::vector<std::string>{"kept"});
    // Out of its run loop it keeps its calls, and goes with its owner.
    auto idle = watched.lock();
    idle->schedulePerformInvocation(note("later"), std::nullopt);
    idle->removeFromRunLoop(RunLoop::current(), kMode);
    turn();
    EXPECT_EQ(calls.size(), 1u);
    idle->scheduleInRunLoop(RunLoop::current(), kMode);
    turn();
    EXPECT_EQ(calls.back(), "later");
    idle->invalidate();
    idle->scheduleInRunLoop(RunLoop::current(), kMode);
    idle->schedulePerformInvocation(note("never"), std::nullopt);
    turn();
    EXPECT_EQ(calls.size(), 2u);
    idle->executePreviousPerformRequests();
    EXPECT_EQ(calls.back(), "never");
    idle.reset();
    EXPECT_TRUE(watched.expired());
}
