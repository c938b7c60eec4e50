#include <dmf/ADMMessageQueue.h>

#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using dmf::Date;
using dmf::RunLoop;
using dmf::Value;
using Result = RunLoop::Result;

namespace {

constexpr const char* kQueueMode = "queue mode";

struct Target {
    std::vector<std::string> received;
    std::function<void(ADMMessageQueue&)> onFirst;

    void take(ADMMessageQueue& queue, const Value& object)
    {
        received.push_back(object.description());
        if (const auto once = std::exchange(onFirst, nullptr))
            once(queue);
    }
};

Result turn()
{
    return RunLoop::current()->runMode(kQueueMode, Date::distantPast());
}

} // namespace

TEST(MessageQueue, OneTurnDeliversWhatIsPendingAndWhatIsAddedMeanwhile)
{
    const auto target = std::make_shared<Target>();
    const auto queue = ADMMessageQueue::messageQueueWithTarget(target, &Target::take);
    target->onFirst = [](ADMMessageQueue& it) { it.addObject("d"); };
    queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    for (const char* object : {"a", "b", "c"})
        queue->addObject(object);
    queue->addObject(nullptr);
    EXPECT_TRUE(target->received.empty());
    turn();
    EXPECT_EQ(target->received, (std::vector<std::string>{"a", "b", "c", "d"}));

    queue->addObject("e");
    queue->removeAllObjects();
    queue->addObject("f");
    queue->addObject("g");
    EXPECT_EQ(queue->popFirstObject(), "f");
    turn();
    EXPECT_EQ(target->received.back(), "g");
    EXPECT_EQ(target->received.size(), 5u);
    queue->invalidate();
}

TEST(MessageQueue, NeedsATargetAndDoesNotKeepIt)
{
    EXPECT_EQ(ADMMessageQueue::initWithInvocation({}), nullptr);
    EXPECT_EQ(ADMMessageQueue::initWithTarget(std::shared_ptr<Target>(), &Target::take), nullptr);
    auto target = std::make_shared<Target>();
    const auto queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    EXPECT_EQ(target.use_count(), 1);
    queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    queue->addObject("nobody's");
    target.reset();
    turn();
    EXPECT_TRUE(queue->popFirstObject().isNull());
    queue->invalidate();
}

TEST(MessageQueue, RemembersEachScheduling)
{
    const auto target = std::make_shared<Target>();
    const auto queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    const auto loop = RunLoop::current();
    queue->addObject("early"); // before there is a source that could be signalled
    queue->scheduleInRunLoop(loop, kQueueMode);
    queue->scheduleInRunLoop(loop, "another mode");
    EXPECT_EQ(queue->runLoops().size(), 2u);
    turn();
    EXPECT_EQ(target->received, std::vector<std::string>{"early"});

    queue->removeFromRunLoop(loop, kQueueMode);
    EXPECT_TRUE(queue->runLoops().empty()) << "every entry of the run loop goes";
    EXPECT_EQ(turn(), Result::finished);
    queue->addObject("late");
    EXPECT_EQ(loop->runMode("another mode", Date::distantPast()), Result::timedOut) << "the other mode still has it";
    EXPECT_EQ(target->received.back(), "late");
    // And it is woken there: what comes in does not wait for the mode's time-out.
    auto late = std::async(std::launch::async, [&] { queue->addObject("later"); });
    EXPECT_EQ(loop->runMode("another mode", Date::afterNow(30), true), Result::handledSource);
    EXPECT_EQ(target->received.back(), "later");
    queue->removeFromRunLoop(loop, "another mode");
    EXPECT_EQ(loop->runMode("another mode", Date::distantPast()), Result::finished);
}

TEST(MessageQueue, LivesWhileItIsScheduled)
{
    const auto target = std::make_shared<Target>();
    const auto loop = RunLoop::current();
    auto queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    const std::weak_ptr<ADMMessageQueue> watched = queue;
    queue->scheduleInRunLoop(loop, kQueueMode);
    queue->scheduleInRunLoop(loop, "another mode");
    queue->addObject("a");
    queue.reset();
    turn();
    EXPECT_EQ(target->received, std::vector<std::string>{"a"});
    watched.lock()->removeFromRunLoop(loop, kQueueMode);
    EXPECT_FALSE(watched.expired());
    watched.lock()->removeFromRunLoop(loop, "another mode");
    EXPECT_TRUE(watched.expired());

    // Neither does it outlive the run loop's thread, nor its own end.
    std::weak_ptr<ADMMessageQueue> others;
    std::thread([&] {
        const auto its = ADMMessageQueue::initWithTarget(target, &Target::take);
        others = its;
        its->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    }).join();
    EXPECT_TRUE(others.expired());
    queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    others = queue;
    queue->scheduleInRunLoop(loop, kQueueMode);
    queue->invalidate();
    queue.reset();
    EXPECT_TRUE(others.expired());
}

TEST(MessageQueue, InvalidatingDropsEverything)
{
    const auto target = std::make_shared<Target>();
    const auto queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    const auto source = queue->CFSource();
    target->onFirst = [](ADMMessageQueue& it) { it.invalidate(); };
    queue->addObject("first");
    queue->addObject("second");
    turn();
    EXPECT_EQ(target->received, std::vector<std::string>{"first"});
    EXPECT_FALSE(source->isValid());
    EXPECT_TRUE(queue->runLoops().empty());
    queue->addObject("too late");
    EXPECT_TRUE(queue->popFirstObject().isNull());
    EXPECT_EQ(turn(), Result::finished);
}

TEST(MessageQueue, TheLastReferenceMayGoInADelivery)
{
    std::shared_ptr<ADMMessageQueue> queue;
    int delivered = 0;
    queue = ADMMessageQueue::initWithInvocation([&, kept = std::make_shared<int>(1)](ADMMessageQueue&, const Value&) {
        if (const auto last = std::exchange(queue, nullptr))
            last->removeFromRunLoop(RunLoop::current(), kQueueMode);
        delivered += *kept;
    });
    queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    queue->addObject(1);
    queue->addObject(2);
    turn();
    EXPECT_EQ(delivered, 2) << "the delivery under way is carried through";
}

TEST(MessageQueue, WhatTheTargetThrowsLeavesTheRestToTheNextTurn)
{
    const auto target = std::make_shared<Target>();
    const auto queue = ADMMessageQueue::initWithTarget(target, &Target::take);
    target->onFirst = [](ADMMessageQueue&) { throw std::runtime_error("target"); };
    queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
    queue->addObject("bad");
    queue->addObject("good");
    EXPECT_THROW(turn(), std::runtime_error);
    turn();
    EXPECT_EQ(target->received, (std::vector<std::string>{"bad", "good"}));
    queue->invalidate();
}

TEST(MessageQueue, ManyThreadsFeedOneRunLoopInOrder)
{
    constexpr int kSenders = 3;
    constexpr int kEach = 3000;
    std::promise<void> started;
    std::vector<int> next(kSenders, 0);
    bool isInOrder = true;
    const auto queue = ADMMessageQueue::initWithInvocation([&](ADMMessageQueue&, const Value& object) {
        const int number = object.asNumber()->int32Value();
        isInOrder = isInOrder && next[static_cast<std::size_t>(number / kEach)]++ == number % kEach;
        if (next == std::vector<int>(kSenders, kEach))
            RunLoop::current()->stop();
    });
    auto result = std::async(std::launch::async, [&] {
        queue->scheduleInRunLoop(RunLoop::current(), kQueueMode);
        started.set_value();
        return RunLoop::current()->runMode(kQueueMode, Date::afterNow(40));
    });
    started.get_future().wait();
    std::vector<std::thread> senders;
    for (int sender = 0; sender < kSenders; ++sender) {
        senders.emplace_back([&, sender] {
            for (int i = 0; i < kEach; ++i)
                queue->addObject(sender * kEach + i);
        });
    }
    for (auto& sender : senders)
        sender.join();
    EXPECT_EQ(result.get(), Result::stopped);
    EXPECT_TRUE(isInOrder);
}
