#include <chrono>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dmf/ADMAuthenticationContextImpl.h>
#include <dmf/ADMOperationBasedFunctionalServiceImp.h>

#include "TestOperation.h"
#include "support/ChannelDelegate.h"
#include "support/CpuTime.h"
#include "support/HostFixture.h"

using dmf::Date;
using dmf::kDefaultRunLoopMode;
using dmf::RunLoop;
using testing::ElementsAre;
using Modes = std::set<std::string>;
using Service = ADMOperationBasedFunctionalServiceImp;

namespace {

class StatefulServiceInfo : public FakeServiceInfo {
public:
    std::uint32_t state = 0;
    std::uint32_t serviceState() const override { return state; }
};

std::shared_ptr<Service> makeService()
{
    return ADMFunctionalServiceImp::initWithServiceInfo<Service>(std::make_shared<FakeServiceInfo>());
}

/// An operation that writes down what its service does with it.
class RecordedOperation : public ADMSchedulableOperation {
public:
    using ADMSchedulableOperation::ADMSchedulableOperation;
    std::vector<std::string> told;
    std::function<void()> onScheduling;
    bool throws = false;

    void scheduleOperation() override
    {
        ADMSchedulableOperation::scheduleOperation();
        told.emplace_back("run");
    }
    void scheduleInRunLoop(const std::shared_ptr<RunLoop>&, std::string_view mode) override
    {
        told.push_back("in " + std::string(mode));
        if (onScheduling)
            onScheduling();
    }
    void removeFromRunLoop(const std::shared_ptr<RunLoop>&, std::string_view mode) override
    {
        told.push_back("out of " + std::string(mode));
        if (throws)
            throw std::runtime_error("no such mode");
    }
    static std::shared_ptr<RecordedOperation> make()
    {
        return initWithServiceInfo<RecordedOperation>(std::make_shared<FakeServiceInfo>());
    }
};

std::shared_ptr<TestOperation> makeOn(const std::shared_ptr<ADMOperationQueue>& queue, TestOperation::Work work)
{
    return ADMSchedulableOperation::initWithServiceInfo<TestOperation>(std::make_shared<FakeServiceInfo>(),
                                                                       std::move(work), queue);
}

/// The run loop of a thread that is gone: one that is not this thread's.
std::shared_ptr<RunLoop> otherRunLoop()
{
    return std::async(std::launch::async, [] { return RunLoop::current(); }).get();
}

} // namespace

TEST(FunctionalService, IsAvailableOnceItsDeviceIsFound)
{
    EXPECT_FALSE(ADMFunctionalServiceImp::initWithServiceInfo(nullptr));
    EXPECT_FALSE(ADMFunctionalServiceImp::initWithServiceInfo<Service>(nullptr));
    const auto info = std::make_shared<StatefulServiceInfo>();
    const std::shared_ptr<ADMInterface> service = ADMFunctionalServiceImp::initWithServiceInfo(info);
    EXPECT_EQ(service->serviceInfo(), info);
    for (const std::uint32_t state : {0u, 1u, 2u, 3u, 7u}) {
        info->state = state;
        EXPECT_EQ(service->isAvailable(), state == 1) << state;
    }
}

TEST(FunctionalService, KeepsParametersAndErrorForItself)
{
    const auto service = makeService();
    EXPECT_TRUE(service->parameters().empty());
    EXPECT_TRUE(service->lastError().empty());
    dmf::Dictionary given{{"DMParameterPollingInterval", 2}};
    service->setParameters(given);
    given.set("DMParameterPollingInterval", 3);
    auto taken = service->parameters();
    taken.set("another", 1);
    EXPECT_EQ(service->parameters(), (dmf::Dictionary{{"DMParameterPollingInterval", 2}}));
    service->setLastError({{"DMErrorCode", 6}});
    EXPECT_EQ(service->lastError()["DMErrorCode"], 6);
    service->setLastError({});
    EXPECT_TRUE(service->lastError().empty());
}

TEST(OperationBasedService, IsScheduledOnOneRunLoop)
{
    const auto service = makeService();
    const auto a = RunLoop::current();
    const auto b = otherRunLoop();
    EXPECT_FALSE(service->runLoop());
    service->scheduleInRunLoop(a, "M1");
    service->scheduleInRunLoop(a, "M2");
    service->scheduleInRunLoop(a, std::nullopt);
    EXPECT_EQ(service->runLoop(), a);
    EXPECT_EQ(service->runLoopModes(), (Modes{"M1", "M2"}));
    service->removeFromRunLoop(b, "M1");
    service->removeFromRunLoop(a, std::nullopt);
    EXPECT_EQ(service->runLoopModes(), (Modes{"M1", "M2"}));

    service->scheduleInRunLoop(b, "M3");
    EXPECT_EQ(service->runLoop(), b);
    EXPECT_EQ(service->runLoopModes(), (Modes{"M3"}));
    service->removeFromRunLoop(b, "M3");
    EXPECT_FALSE(service->runLoop());
    const auto operation = RecordedOperation::make();
    service->scheduleOperation(operation);
    EXPECT_THAT(operation->told, ElementsAre("run"));

    service->scheduleInRunLoop(a, "M1");
    service->scheduleInRunLoop(nullptr, "M4");
    EXPECT_FALSE(service->runLoop());
    EXPECT_TRUE(service->runLoopModes().empty());
}

TEST(OperationBasedService, SchedulesAndUnschedulesOperations)
{
    auto service = makeService();
    service->scheduleInRunLoop(RunLoop::current(), "M1");
    service->scheduleInRunLoop(RunLoop::current(), "M2");
    const auto first = RecordedOperation::make();
    const auto second = RecordedOperation::make();
    service->scheduleOperation(nullptr);
    service->scheduleOperation(first);
    service->scheduleOperation(second);
    EXPECT_THAT(first->told, ElementsAre("in M1", "in M2", "run"));
    EXPECT_TRUE(first->isActive());
    EXPECT_EQ(std::dynamic_pointer_cast<Service>(first->delegate()), service);
    EXPECT_THAT(service->operations(), ElementsAre(first, second));

    first->told.clear();
    service->unscheduleOperation(nullptr);
    service->unscheduleOperation(first);
    EXPECT_THAT(first->told, ElementsAre("out of M1", "out of M2"));
    EXPECT_FALSE(first->delegate());
    EXPECT_FALSE(first->isCanceled());
    EXPECT_THAT(service->operations(), ElementsAre(second));

    second->told.clear();
    const std::weak_ptr<Service> watched = service;
    service.reset();
    EXPECT_TRUE(watched.expired()) << "operations do not keep their service";
    EXPECT_THAT(second->told, ElementsAre("out of M1", "out of M2"));
    EXPECT_FALSE(second->delegate());
}

TEST(OperationBasedService, BearsWhatOperationsDoAsTheyAreScheduledAndUnscheduled)
{
    HostFixture host;
    host.setEnvironment("DMFConsoleLog", "1");
    auto service = makeService();
    service->scheduleInRunLoop(RunLoop::current(), "M1");
    service->scheduleInRunLoop(RunLoop::current(), "M2");
    const auto throwing = RecordedOperation::make();
    throwing->throws = true;
    const auto last = RecordedOperation::make();
    service->scheduleOperation(throwing);
    service->scheduleOperation(last);
    last->told.clear();
    service.reset();
    EXPECT_THAT(last->told, ElementsAre("out of M1", "out of M2"));
    EXPECT_EQ(host.systemLog().size(), 1u);

    service = makeService();
    service->scheduleInRunLoop(RunLoop::current(), "M1");
    service->scheduleInRunLoop(RunLoop::current(), "M2");
    auto offered = RecordedOperation::make();
    const auto releasing = offered;
    releasing->onScheduling = [&] {
        if (service)
            service->scheduleInRunLoop(nullptr, std::nullopt);
        service.reset();
    };
    service->scheduleOperation(offered);
    EXPECT_FALSE(service);
    EXPECT_THAT(releasing->told, ElementsAre("in M1", "in M2", "run"));
}

TEST(OperationBasedService, RunsAnOperationInAModeOfItsOwn)
{
    const auto service = makeService();
    const auto queue = std::make_shared<ADMOperationQueue>();
    bool hostWasServed = false;
    const auto hostSource = dmf::RunLoopSource::create([&] { hostWasServed = true; });
    RunLoop::current()->addSource(hostSource, kDefaultRunLoopMode);
    hostSource->signal();

    std::thread::id reportedOn;
    const auto operation = makeOn(queue, [&](TestOperation& it) {
        return calling([&] {
            reportedOn = std::this_thread::get_id();
            EXPECT_EQ(RunLoop::current()->currentMode(), "com.ql.dmf.runloop.mode.sync.operation");
            EXPECT_TRUE(service->operations().empty());
            EXPECT_FALSE(it.delegate());
            it.setFinished(true);
        });
    });
    const auto before = std::chrono::steady_clock::now();
    service->performOperation(operation);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(450)) << "a report is seen at once";
    EXPECT_TRUE(operation->isFinished());
    EXPECT_EQ(reportedOn, std::this_thread::get_id());
    EXPECT_FALSE(hostWasServed);
    hostSource->invalidate();
    service->performOperation(nullptr);

    // The mode is left as it was found.
    EXPECT_EQ(RunLoop::current()->runMode(service->runLoopMode(), Date::distantPast()), RunLoop::Result::finished);
}

TEST(OperationBasedService, LooksTwiceASecondWhetherASilentOperationIsFinished)
{
    const auto service = makeService();
    const auto queue = std::make_shared<ADMOperationQueue>();
    std::promise<void> mayEnd;
    const auto operation = makeOn(queue, [&](TestOperation& it) -> std::shared_ptr<ADMCallback> {
        mayEnd.get_future().wait();
        it.setFinished(true);
        return nullptr;
    });
    const auto timer = dmf::RunLoopTimer::create(Date::afterNow(0.1), 0, dmf::RunLoopTimer::Repeat::no,
                                                 [&](dmf::RunLoopTimer&) { mayEnd.set_value(); });
    RunLoop::current()->addTimer(timer, service->runLoopMode());
    const CpuTime spent;
    const auto before = std::chrono::steady_clock::now();
    service->performOperation(operation);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - before;
    EXPECT_TRUE(operation->isFinished());
    EXPECT_LT(passed.count(), 5);
    EXPECT_LT(spent.seconds(), 0.2) << "it waits and does not spin";
}

TEST(OperationBasedService, WhatAReportThrowsReachesTheCallerAndLeavesNothingBehind)
{
    auto service = makeService();
    const auto queue = std::make_shared<ADMOperationQueue>();
    const auto throwing =
        makeOn(queue, [](TestOperation&) { return calling([] { throw std::runtime_error("no paper"); }); });
    EXPECT_THROW(service->performOperation(throwing), std::runtime_error);
    EXPECT_EQ(RunLoop::current()->runMode(service->runLoopMode(), Date::distantPast()), RunLoop::Result::finished);

    // A report may release the service, or run another operation synchronously.
    auto* const alive = service.get();
    bool innerHasFinished = false;
    const auto inner =
        makeOn(queue, [&](TestOperation& it) { return calling([&] { it.setFinished(innerHasFinished = true); }); });
    alive->performOperation(makeOn(queue, [&](TestOperation& it) {
        return calling([&] {
            makeService()->performOperation(inner);
            EXPECT_TRUE(innerHasFinished);
            service.reset();
            it.setFinished(true);
        });
    }));
    EXPECT_TRUE(innerHasFinished);
    EXPECT_FALSE(service);
}

TEST(OperationBasedService, HasOneAuthenticationContext)
{
    const auto service = makeService();
    const std::shared_ptr<IDMAuthenticationContext> context = service->authenticationContext();
    EXPECT_TRUE(std::dynamic_pointer_cast<ADMAuthenticationContextImpl>(context));
    EXPECT_EQ(service->authenticationContext(), context);
    EXPECT_NE(makeService()->authenticationContext(), context);
    const auto operation = RecordedOperation::make();
    operation->setAuthenticationContext(context);
    EXPECT_EQ(operation->authenticationContext(), context);
}

TEST(OperationBasedService, HoldsItsDelegateWeaklyAndHasFixedTimes)
{
    struct Client : dmf::Delegate {};
    const auto service = makeService();
    auto client = std::make_shared<Client>();
    service->setDelegate(client);
    EXPECT_EQ(service->delegate(), client);
    client.reset();
    EXPECT_FALSE(service->delegate());
    EXPECT_EQ(service->runQuantum(), 0.5);
    EXPECT_EQ(service->timeout(), 0.0);
}
