#include <dmf/ADMWorkerThread.h>

#include <dmf/ADMInvalidateHelper.h>
#include <dmf/ADMPOSIXMutex.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "foundation/threads/HandOver.h"
#include "support/FailingAllocations.h"
#include "support/HostFixture.h"
#include "support/LoopThread.h"
#include "support/TurnUntil.h"

using dmf::Date;
using dmf::RunLoop;
using dmf::RunLoopSource;
using dmf::RunLoopTimer;
using dmf::internal::HandOver;

namespace {

/// A worker whose work the test supplies.
class Worker : public ADMWorkerThread {
public:
    using Work = std::function<std::uintptr_t(Worker&)>;
    explicit Worker(Work work, bool detached = false) : work_(std::move(work))
    {
        if (detached)
            setRunDetached();
    }
    using ADMWorkerThread::isCurrentThread;
    using ADMWorkerThread::isStopRequested;

    void signalForStop() override
    {
        ADMWorkerThread::signalForStop();
        std::lock_guard guard(lock_);
        wake_.notify_all();
    }
    std::uintptr_t waitForStop(std::uintptr_t result)
    {
        std::unique_lock guard(lock_);
        wake_.wait(guard, [this] { return isStopRequested(); });
        return result;
    }

protected:
    std::uintptr_t run() override { return work_(*this); }

private:
    const Work work_;
    std::mutex lock_;
    std::condition_variable wake_;
};

std::uintptr_t untilStopped(Worker& worker)
{
    return worker.waitForStop(7);
}

/// Both forms, joinable and detached, keep the same promises save one.
class WorkerForms : public testing::TestWithParam<bool> {
protected:
    static std::shared_ptr<Worker> worker(Worker::Work work)
    {
        return std::make_shared<Worker>(std::move(work), GetParam());
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(JoinableAndDetached, WorkerForms, testing::Bool());

TEST_P(WorkerForms, StopGivesTheResultAndAllowsANewStartAtOnce)
{
    const auto it = worker(untilStopped);
    EXPECT_EQ(it->stop(), 0u) << "never started";
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(it->start(), 0);
        EXPECT_EQ(it->start(), -1) << "it runs already";
        EXPECT_TRUE(it->isRunning());
        EXPECT_EQ(it->stop(), 7u);
        EXPECT_FALSE(it->isRunning());
    }
}

TEST_P(WorkerForms, WorkThatEndsByItselfIsNotWaitedFor)
{
    const auto it = worker([](Worker&) { return std::uintptr_t{5}; });
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(it->start(), 0);
        ASSERT_TRUE(turnUntil([&] { return !it->isRunning(); }));
        if (round % 2 == 0) {
            EXPECT_EQ(it->stop(), GetParam() ? 5u : 0u);
        }
    }
}

TEST_P(WorkerForms, StopOnItsOwnThreadOnlyAsks)
{
    std::promise<bool> asked;
    const auto it = worker([&](Worker& self) {
        const bool isOwn = self.isCurrentThread();
        asked.set_value(self.stop() == 0 && isOwn && self.isStopRequested());
        return std::uintptr_t{1};
    });
    ASSERT_EQ(it->start(), 0);
    EXPECT_TRUE(asked.get_future().get());
    it->stop();
}

TEST_P(WorkerForms, TheLastReferenceMayGoWhileTheWorkRuns)
{
    std::promise<void> released;
    std::weak_ptr<Worker> weak;
    {
        const auto it = worker([wait = released.get_future().share()](Worker&) {
            wait.wait();
            return std::uintptr_t{0};
        });
        weak = it;
        ASSERT_EQ(it->start(), 0);
    }
    EXPECT_FALSE(weak.expired()) << "a running worker keeps itself";
    released.set_value();
    EXPECT_TRUE(turnUntil([&] { return weak.expired(); }));
}

TEST_P(WorkerForms, AnExceptionEndsTheWorkWithOneLine)
{
    HostFixture host;
    host.writeFile("/var/log/qlio/DMFLogLevel", "errors");
    const auto it = worker([](Worker& self) -> std::uintptr_t {
        self.waitForStop(0);
        throw std::runtime_error("the device went away");
    });
    ASSERT_EQ(it->start(), 0);
    EXPECT_EQ(it->stop(), 0u);
    const std::string log = host.readFile("/var/log/qlio/DMF_testprogram.log");
    EXPECT_NE(log.find("ADMWorkerThread: NSException thrown. the device went away...\n"), std::string::npos) << log;
    ASSERT_EQ(it->start(), 0);
    EXPECT_EQ(it->stop(), 0u);
}

TEST(WorkerThread, StartOfTheDetachedFormWaitsUntilTheWorkerLetsItGo)
{
    struct Late : ADMWorkerThread {
        std::atomic<bool> isReady{false};
        std::atomic<bool> mayEnd{false};
        std::uintptr_t threadEntry() override
        {
            isReady = true;
            releaseStarter();
            releaseStarter(); // once is enough
            while (!mayEnd)
                std::this_thread::yield();
            return 3;
        }
    };
    const auto it = std::make_shared<Late>();
    it->setRunDetached();
    for (int round = 0; round < 20; ++round) {
        it->isReady = it->mayEnd = false;
        ASSERT_EQ(it->start(), 0);
        EXPECT_TRUE(it->isReady);
        it->mayEnd = true;
        EXPECT_EQ(it->stop(), 3u);
    }
}

TEST_P(WorkerForms, AReleaseAfterStopDestroysTheWorkerThere)
{
    struct Watched : Worker {
        using Worker::Worker;
        std::promise<std::thread::id>* destroyedOn = nullptr;
        ~Watched() override { destroyedOn->set_value(std::this_thread::get_id()); }
    };
    for (int round = 0; round < 200; ++round) {
        std::promise<std::thread::id> destroyedOn;
        auto it = std::make_shared<Watched>([](Worker&) { return std::uintptr_t{1}; }, GetParam());
        it->destroyedOn = &destroyedOn;
        ASSERT_EQ(it->start(), 0);
        while (!GetParam() && it->isRunning()) // its end is waited for by nobody
            std::this_thread::yield();
        it->stop();
        it.reset();
        ASSERT_EQ(destroyedOn.get_future().get(), std::this_thread::get_id()) << round;
    }
}

TEST_P(WorkerForms, AThrowWhileAskingLeavesNobodyBehind)
{
    struct Throwing : Worker {
        using Worker::Worker;
        bool throws = true;
        void signalForStop() override
        {
            if (std::exchange(throws, false))
                throw std::runtime_error("no");
            Worker::signalForStop();
        }
    };
    const auto it = std::make_shared<Throwing>(untilStopped, GetParam());
    ASSERT_EQ(it->start(), 0);
    EXPECT_THROW(it->stop(), std::runtime_error);
    const auto result = it->stop(); // the work was asked, and may have ended by itself since: then nothing is joined
    EXPECT_TRUE(result == 7u || (result == 0 && !GetParam())) << result;
    ASSERT_EQ(it->start(), 0);
    EXPECT_EQ(it->stop(), 7u);
}

TEST_P(WorkerForms, AStartWithoutMemoryLeavesTheWorkerIdle)
{
    const auto it = worker(untilStopped);
    for (int allowed = 0; allowed < 8; ++allowed) {
        std::int32_t status = 0;
        {
            const FailingAllocations failing(allowed);
            status = it->start();
        }
        if (status == 0) {
            EXPECT_GT(allowed, 0);
            EXPECT_EQ(it->stop(), 7u);
            return;
        }
        EXPECT_EQ(status, ENOMEM);
        EXPECT_FALSE(it->isRunning());
        EXPECT_EQ(it->stop(), 0u);
    }
    FAIL() << "never started";
}

TEST_P(WorkerForms, SeveralMayWaitForOneEnd)
{
    const auto it = worker(untilStopped);
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(it->start(), 0);
        auto other = std::async(std::launch::async, [&] {
            const auto result = it->stop();
            EXPECT_FALSE(it->isRunning());
            return result;
        });
        const auto result = it->stop();
        EXPECT_FALSE(it->isRunning());
        // Who comes after the end of a joinable one gets nothing.
        EXPECT_EQ(std::max(result, other.get()), 7u);
    }
}

TEST(WorkerThread, TheThreadIsNamedAndTakesNoSignals)
{
    struct Named : Worker {
        using Worker::Worker;
        const char* threadName() const noexcept override { return "a name that is too long"; }
    };
    char name[64] = "";
    bool allAreBlocked = true;
    const auto work = [&](Worker&) {
        pthread_getname_np(pthread_self(), name, sizeof name);
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (const int signal : {SIGTERM, SIGCHLD, SIGPIPE, SIGUSR1, SIGPROF, SIGRTMIN})
            allAreBlocked = allAreBlocked && sigismember(&blocked, signal);
        return std::uintptr_t{0};
    };
    const auto it = std::make_shared<Named>(work, true);
    ASSERT_EQ(it->start(), 0);
    it->stop();
    EXPECT_STREQ(name, "a name that is ");
    EXPECT_TRUE(allAreBlocked);
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_FALSE(sigismember(&own, SIGTERM)) << "the starter's own mask is as it was";
}

TEST(Mutexes, AnswerWhatTheSystemAnswers)
{
    const auto plain = ADMPOSIXMutex::newMutex();
    EXPECT_EQ(plain->lock(), 0);
    EXPECT_EQ(plain->trylock(), EBUSY) << "its own thread is no exception";
    EXPECT_EQ(plain->unlock(), 0);

    const auto recursive = ADMPOSIXMutex::newRecursiveMutex();
    EXPECT_EQ(recursive->lock() + recursive->lock() + recursive->unlock(), 0);
    EXPECT_EQ(std::async(std::launch::async, [&] { return recursive->trylock(); }).get(), EBUSY) << "held once still";
    EXPECT_EQ(recursive->unlock(), 0);
}

TEST(Mutexes, AHandOverIsReleasedByAnotherThread)
{
    int handedOver = 0; // ordered by the hand-over alone
    for (int round = 0; round < 200; ++round) {
        auto turn = std::make_unique<HandOver>(HandOver::State::taken);
        EXPECT_EQ(turn->trylock(), EBUSY);
        std::thread other([&handedOver, it = turn.get()] {
            ++handedOver;
            it->unlock();
        });
        EXPECT_EQ(turn->lock(), 0);
        EXPECT_EQ(handedOver, round + 1);
        turn.reset(); // at once, while the other thread may still be on its way out
        other.join();
    }
    EXPECT_EQ(HandOver().unlock(), EPERM);
}

TEST(InvalidateHelper, InvalidatesOnTheTimersThreadAndWaitsForIt)
{
    LoopThread owner("mode");
    const auto loop = owner.loop();
    std::promise<void> isBusy, mayTurn;
    const auto busy = RunLoopSource::create([&] {
        isBusy.set_value();
        mayTurn.get_future().wait();
    });
    busy->signal();
    loop->addSource(busy, "mode");
    isBusy.get_future().wait();
    const auto timer = RunLoopTimer::create(Date::distantFuture(), 0, RunLoopTimer::Repeat::no, {});
    loop->addTimer(timer, "mode");

    ADMInvalidateHelper helper;
    EXPECT_FALSE(helper.invalidateTimer(nullptr, loop, "mode") || helper.invalidateTimer(timer, nullptr, "mode"));
    // While the loop does not turn the request stays under way, and every other one is refused.
    // It may itself be refused once, while the question of the other thread is under way.
    auto first = std::async(std::launch::async, [&] {
        while (!helper.invalidateTimer(timer, loop, "mode"))
            std::this_thread::yield();
    });
    const auto own = RunLoopTimer::create(Date::distantFuture(), 0, RunLoopTimer::Repeat::no, {});
    EXPECT_TRUE(turnUntil([&] { return !helper.invalidateTimer(own, RunLoop::current(), "mode"); }));
    EXPECT_TRUE(timer->isValid());
    mayTurn.set_value();
    first.get();
    EXPECT_FALSE(timer->isValid());
    EXPECT_TRUE(helper.invalidateTimer(timer, loop, "mode")) << "free again";
    owner.end();
    EXPECT_TRUE(helper.invalidateTimer(timer, loop, "mode")) << "a run loop that has ended keeps nobody waiting";
}
