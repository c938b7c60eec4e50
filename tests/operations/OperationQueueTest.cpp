#include <future>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "TestOperation.h"
#include "support/HostFixture.h"
#include "support/TurnUntil.h"

using dmf::kDefaultRunLoopMode;
using dmf::RunLoop;
using testing::ElementsAre;
using testing::HasSubstr;
using ThreadState = ADMOperationQueue::ThreadState;

namespace {

/// Holds the queue's thread inside an operation until the test lets it go. What they share outlives the test.
class Gate {
public:
    /// An operation that tells when it runs, and gives the callback once it is let through.
    std::shared_ptr<TestOperation> operation(std::shared_ptr<ADMCallback> callback = nullptr)
    {
        return makeOperation([ways = ways_, callback](TestOperation&) {
            ways->entered.release();
            ways->opened.acquire();
            return callback;
        });
    }
    void waitUntilEntered() { ways_->entered.acquire(); }
    void open() { ways_->opened.release(); }

private:
    struct Ways {
        std::binary_semaphore entered{0};
        std::binary_semaphore opened{0};
    };
    const std::shared_ptr<Ways> ways_ = std::make_shared<Ways>();
};

/// A queue on the test's run loop, and what its operations and callbacks have told.
struct OperationStage {
    OperationStage() { queue->scheduleInRunLoop(RunLoop::current(), kDefaultRunLoopMode); }

    std::shared_ptr<ADMCallback> note(const std::string& text)
    {
        return calling([this, text] { told.push_back(text); });
    }
    void schedule(TestOperation::Work work) { queue->scheduleOperation(makeOperation(std::move(work))); }
    /// Once all that was scheduled before has run and reported.
    void settle()
    {
        schedule([this](TestOperation&) { return note("settled"); });
        ASSERT_TRUE(turnUntil([&] { return !told.empty() && told.back() == "settled"; }));
        told.pop_back();
    }
    std::shared_ptr<ADMOperationQueue> queue = std::make_shared<ADMOperationQueue>();
    std::vector<std::string> told;
};

} // namespace

TEST(OperationQueue, RunsOperationsInOrderAndReportsOnTheRunLoop)
{
    OperationStage stage;
    Gate gate;
    EXPECT_EQ(stage.queue->threadState(), ThreadState::notStarted);
    const auto first = gate.operation(stage.note("first"));
    stage.queue->scheduleOperation(nullptr);
    stage.queue->scheduleOperation(first);
    std::vector<std::thread::id> threads;
    std::vector<std::shared_ptr<TestOperation>> others;
    for (const std::string name : {"second", "third"}) {
        others.push_back(makeOperation([&, name](TestOperation&) {
            threads.push_back(std::this_thread::get_id());
            return stage.note(name);
        }));
        stage.queue->scheduleOperation(others.back());
    }
    gate.waitUntilEntered();
    EXPECT_THAT(stage.queue->operations(), ElementsAre(others[1], others[0], first)) << "the running one is listed";
    gate.open();
    stage.settle();
    EXPECT_THAT(stage.told, ElementsAre("first", "second", "third"));
    EXPECT_EQ(threads.at(0), threads.at(1));
    EXPECT_NE(threads.at(0), std::this_thread::get_id());
    EXPECT_EQ(stage.queue->threadState(), ThreadState::running);
}

TEST(OperationQueue, LeavesOutCanceledOperationsAndTheirCallbacks)
{
    OperationStage stage;
    Gate gate;
    const auto running = gate.operation(stage.note("running"));
    bool wasPerformed = false;
    const auto waiting = makeOperation([&](TestOperation&) {
        wasPerformed = true;
        return stage.note("waiting");
    });
    stage.queue->scheduleOperation(running);
    stage.queue->scheduleOperation(waiting);
    stage.schedule([&](TestOperation& it) {
        it.cancel();
        return stage.note("itself");
    });
    gate.waitUntilEntered();
    running->cancel();
    waiting->cancel();
    gate.open();
    stage.settle();
    EXPECT_FALSE(wasPerformed);
    EXPECT_TRUE(stage.told.empty());

    Gate second;
    stage.queue->scheduleOperation(second.operation(stage.note("second")));
    stage.schedule([&](TestOperation&) { return stage.note("canceled with all"); });
    second.waitUntilEntered();
    stage.queue->cancelAllOperations();
    second.open();
    stage.settle();
    EXPECT_TRUE(stage.told.empty());
    EXPECT_TRUE(stage.queue->isValid());
}

TEST(OperationQueue, GoesOnAfterAnExceptionAndLogsIt)
{
    HostFixture host;
    host.setEnvironment("DMFConsoleLog", "1");
    OperationStage stage;
    stage.schedule([](TestOperation&) -> std::shared_ptr<ADMCallback> { throw std::runtime_error("no paper"); });
    stage.schedule([](TestOperation& it) { return it.ADMSchedulableOperation::performOperation(); });
    stage.settle();
    ASSERT_EQ(host.systemLog().size(), 2u);
    EXPECT_THAT(host.systemLog()[0].second, HasSubstr("ADMOperationQueue: Exception"));
    EXPECT_THAT(host.systemLog()[0].second, HasSubstr("no paper while perform operation: <TestOperation: 0x"));
    EXPECT_THAT(host.systemLog()[1].second, HasSubstr("performOperation"));
}

TEST(OperationQueue, OperationsAndCallbacksMayScheduleOthers)
{
    OperationStage stage;
    stage.schedule([&](TestOperation& it) {
        stage.schedule([&](TestOperation&) {
            return calling([&] {
                stage.told.emplace_back("inner");
                stage.schedule([&](TestOperation&) { return stage.note("from the callback"); });
            });
        });
        EXPECT_EQ(stage.queue->operations().size(), 2u);
        EXPECT_EQ(stage.queue->operations().back().get(), &it);
        return stage.note("outer");
    });
    ASSERT_TRUE(turnUntil([&] { return stage.told.size() == 3; }));
    EXPECT_THAT(stage.told, ElementsAre("outer", "inner", "from the callback"));
}

TEST(OperationQueue, AnInvalidOneTakesAndTellsNothing)
{
    OperationStage stage;
    Gate gate;
    const auto running = gate.operation(stage.note("running"));
    bool wasPerformed = false;
    // Never active, so that nothing cancels it: it must not be started all the same.
    const auto waiting = ADMSchedulableOperation::initWithServiceInfo<TestOperation>(
        std::make_shared<FakeServiceInfo>(), [&](TestOperation&) -> std::shared_ptr<ADMCallback> {
            wasPerformed = true;
            return nullptr;
        });
    stage.queue->scheduleCallback(stage.note("pending"));
    stage.queue->scheduleOperation(running);
    stage.queue->scheduleOperation(waiting);
    gate.waitUntilEntered();
    stage.queue->invalidate();
    EXPECT_FALSE(stage.queue->isValid());
    EXPECT_TRUE(running->isCanceled());
    EXPECT_EQ(stage.queue->threadState(), ThreadState::running) << "the operation goes on";
    gate.open();
    ASSERT_TRUE(turnUntil([&] { return stage.queue->threadState() == ThreadState::ended; }));
    stage.queue->scheduleOperation(makeOperation({}));
    stage.queue->scheduleCallback(stage.note("late"));
    EXPECT_THAT(stage.queue->operations(), ElementsAre(waiting));
    EXPECT_EQ(stage.queue->threadState(), ThreadState::ended);
    EXPECT_EQ(RunLoop::current()->runMode(kDefaultRunLoopMode, dmf::Date::distantPast()), RunLoop::Result::finished);
    EXPECT_TRUE(stage.told.empty());
    EXPECT_FALSE(wasPerformed);

    // A thread that waits for operations ends as well.
    OperationStage idle;
    idle.settle();
    idle.queue->invalidate();
    EXPECT_TRUE(turnUntil([&] { return idle.queue->threadState() == ThreadState::ended; }));
}

TEST(OperationQueue, CancelsAllEvenWhenOneThrowsOrReleasesTheQueue)
{
    HostFixture host;
    host.setEnvironment("DMFConsoleLog", "1");
    Gate gate;
    auto queue = std::make_unique<ADMOperationQueue>();
    const auto running = gate.operation(nullptr);
    const auto throwing = makeOperation([](TestOperation&) { return nullptr; });
    throwing->onCancel = [] { throw std::runtime_error("no paper"); };
    const auto releasing = makeOperation([](TestOperation&) { return nullptr; });
    releasing->onCancel = [&] {
        releasing->onCancel = {};
        queue.reset();
    };
    for (const auto& operation : {running, releasing, throwing})
        queue->scheduleOperation(operation);
    gate.waitUntilEntered();
    queue->invalidate();
    EXPECT_FALSE(queue);
    EXPECT_TRUE(running->isCanceled());
    EXPECT_THAT(host.systemLog().at(0).second, HasSubstr("ADMOperationQueue: Exception no paper"));
    gate.open();
}

TEST(OperationQueue, TheLastReferenceMayGoAnywhere)
{
    // In an operation, on the queue's thread.
    auto inOperation = std::make_unique<OperationStage>();
    std::promise<void> gone;
    auto operation = makeOperation([&](TestOperation& it) {
        inOperation->queue.reset();
        EXPECT_TRUE(it.isCanceled());
        return inOperation->note("too late");
    });
    operation->onDestruction = [&] { gone.set_value(); };
    inOperation->queue->scheduleOperation(std::move(operation));
    ASSERT_EQ(gone.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(inOperation->told.empty());

    // In a callback, with others waiting.
    OperationStage inCallback;
    inCallback.queue->scheduleCallback(calling([&] { inCallback.queue.reset(); }));
    inCallback.queue->scheduleCallback(inCallback.note("too late"));
    ASSERT_TRUE(turnUntil([&] { return !inCallback.queue; }));
    (void)RunLoop::current()->runMode(kDefaultRunLoopMode, dmf::Date::distantPast());
    EXPECT_TRUE(inCallback.told.empty());

    // On the client's thread, while an operation runs: nobody waits for it.
    OperationStage outside;
    Gate gate;
    std::promise<void> ended;
    auto running = gate.operation(outside.note("too late"));
    running->onDestruction = [&] { ended.set_value(); };
    outside.queue->scheduleOperation(std::move(running));
    gate.waitUntilEntered();
    outside.queue.reset();
    gate.open();
    ASSERT_EQ(ended.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(outside.told.empty());
}

TEST(OperationQueue, ServesManyThreadsAtOnce)
{
    constexpr int perThread = 200;
    OperationStage stage;
    std::atomic<int> performed{0};
    int reported = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < perThread; ++j) {
                stage.schedule([&](TestOperation& it) {
                    ++performed;
                    it.setFinished(true);
                    return calling([&] { ++reported; });
                });
                for (const auto& operation : stage.queue->operations())
                    (void)operation->isFinished();
            }
        });
    EXPECT_TRUE(turnUntil([&] { return reported == 3 * perThread; }));
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(performed, 3 * perThread);
    EXPECT_EQ(reported, 3 * perThread);
}
