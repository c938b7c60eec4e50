#include "../SimulatedStatusService.h"

#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>

#include "support/ChannelDelegate.h"

using dmf::ChannelError;
using dmf::kDefaultRunLoopMode;
using dmf::RunLoop;
using dmf::simulated::SimulatedOperation;
using dmf::simulated::SimulatedStatusDelegate;
using dmf::simulated::SimulatedStatusService;
using testing::ElementsAre;
using Operation = std::shared_ptr<SimulatedOperation>;

namespace {

/// The service's class, found by the name of its interface as a program finds it that registers the bundle.
std::shared_ptr<const dmf::Class> serviceClass()
{
    static const auto found = [] {
        const auto bundle = dmf::Bundle::bundleAtPath(DMF_BUILD_FOLDER "/lib/dmf/MockPlugIns/simulated.bundle");
        EXPECT_TRUE(bundle && bundle->load());
        const auto manager = ADMPlugInManager::sharedManager();
        manager->registerMockImplementors(bundle->infoDictionary());
        return manager->implementorForProtocol(SimulatedStatusService::protocol(), {{"DMMockScheme", "simulated"}});
    }();
    return found;
}

std::string codeOf(const dmf::Dictionary& error)
{
    return error.empty() ? "none" : error[kDMErrorCode].description();
}

std::string codeOf(ChannelError code)
{
    return std::to_string(static_cast<std::int32_t>(code));
}

/// A service of a device with a script, scheduled on the test's run loop, and what it has told.
struct StatusStage {
    explicit StatusStage(const std::string& script)
    {
        const auto found = serviceClass(); // first: the URI's scheme is the bundle's
        const auto info = ADMServiceInfoImp::serviceInfoWithURI(
            "simulated://QLDMF/v=1&connectionType=Simulated&vendorName=QL&modelName=Model%209&" + script,
            "com.ql.printer");
        service = found->make<SimulatedStatusService>(info);
        delegate->operationDidFinish = [this](SimulatedStatusService&, SimulatedOperation& operation) {
            EXPECT_EQ(std::this_thread::get_id(), testThread);
            EXPECT_TRUE(operation.isFinished());
            told.push_back(operation.isOperationSucceed() ? operation.result().description()
                                                          : "failed:" + codeOf(operation.error()));
        };
        delegate->operationDidReadParameters = [this](SimulatedStatusService&, SimulatedOperation&,
                                                      const dmf::Dictionary& parameters) {
            told.push_back(parameters.string("modelName").value_or("?"));
        };
        service->setDelegate(delegate);
        service->scheduleInRunLoop(RunLoop::current(), kDefaultRunLoopMode);
    }
    void setParameter(std::string_view key, double seconds)
    {
        auto parameters = service->parameters();
        parameters.set(key, seconds);
        service->setParameters(parameters);
    }
    /// What becomes of the operation when it is scheduled.
    std::string outcome(const Operation& operation)
    {
        told.clear();
        service->scheduleOperation(operation);
        EXPECT_TRUE(turnUntil([&] { return operation->isFinished(); }));
        return told.empty() ? "nothing" : told.back();
    }
    const std::thread::id testThread = std::this_thread::get_id();
    std::shared_ptr<SimulatedStatusService> service;
    std::shared_ptr<SimulatedStatusDelegate> delegate = std::make_shared<SimulatedStatusDelegate>();
    std::vector<std::string> told;
};

} // namespace

TEST(SimulatedStatusService, IsFoundByItsInterface)
{
    ASSERT_TRUE(serviceClass());
    EXPECT_EQ(serviceClass()->name(), "DMFSimulatedStatusService");
    EXPECT_FALSE(serviceClass()->make<ADMInterfaceInitialization>(nullptr));
    const auto info = ADMServiceInfoImp::serviceInfoWithURI(
        "simulated://QLDMF/v=1&connectionType=Simulated&vendorName=QL&modelName=Model%209", "com.ql.printer");
    const std::shared_ptr<ADMInterface> service = serviceClass()->make<ADMInterfaceInitialization>(info);
    ASSERT_TRUE(service);
    EXPECT_FALSE(service->isAvailable());
    info->setServiceState(1);
    EXPECT_TRUE(service->isAvailable());
}

TEST(SimulatedStatusService, RunsOperationsOneAfterAnotherAndReportsEach)
{
    StatusStage stage("answer=ready&answerDelay=20&selfTestDelay=10");
    const auto status = stage.service->newStatusOperation();
    const auto test = stage.service->newSelfTestOperation();
    EXPECT_EQ(status->authenticationContext(), stage.service->authenticationContext());
    stage.setParameter(kDMParameterPollingIntervalKey, 0.01);
    const auto parameters = stage.service->newParametersOperation(2);
    for (const auto& operation : {status, test, parameters})
        stage.service->scheduleOperation(operation);
    EXPECT_EQ(stage.service->operations().size(), 3u);
    ASSERT_TRUE(turnUntil([&] { return parameters->isFinished(); }));
    ASSERT_EQ(stage.told.size(), 5u);
    EXPECT_EQ(stage.told[0], "ready");
    EXPECT_EQ(stage.told[1], "passed");
    EXPECT_EQ(stage.told[2], "Model 9");
    EXPECT_EQ(stage.told[3], "Model 9");
    EXPECT_EQ((*parameters->result().asDictionary())["modelName"], "Model 9");
    EXPECT_TRUE(stage.service->operations().empty());
    EXPECT_TRUE(stage.service->lastError().empty());
    EXPECT_EQ(RunLoop::current()->runMode(kDefaultRunLoopMode, dmf::Date::distantPast()), RunLoop::Result::finished)
        << "nothing of the service is left in the mode";

    EXPECT_EQ(stage.outcome(status), "ready") << "an operation can run again";
}

TEST(SimulatedStatusService, RunsAnOperationWhileItsCallerWaits)
{
    StatusStage stage("answer=ready");
    const auto status = stage.service->newStatusOperation();
    stage.service->performOperation(status);
    EXPECT_TRUE(status->isFinished() && status->isOperationSucceed());
    EXPECT_EQ(status->result(), "ready");
    EXPECT_TRUE(stage.told.empty());

    // Beside one that is scheduled, has its outcome first, and reports later, in its own mode.
    StatusStage both("answer=ready&selfTestDelay=200");
    const auto scheduled = both.service->newStatusOperation();
    both.service->scheduleOperation(scheduled);
    const auto test = both.service->newSelfTestOperation();
    both.service->performOperation(test);
    EXPECT_EQ(test->result(), "passed");
    EXPECT_TRUE(both.told.empty());
    EXPECT_TRUE(turnUntil([&] { return scheduled->isFinished(); }));
    EXPECT_THAT(both.told, ElementsAre("ready"));
}

TEST(SimulatedStatusService, TellsWhatWentWrong)
{
    struct {
        const char* script;
        const char* operation;
        double timeout;
        ChannelError code;
    } const cases[] = {
        {"reachable=no", "status", 0, ChannelError::failed},
        {"reachable=no", "test", 0, ChannelError::failed},
        {"reachable=no", "parameters", 0, ChannelError::failed},
        {"openStatus=-21", "status", 0, ChannelError::failed},
        {"breakAfter=3&answer=ready", "status", 0, ChannelError::failed},
        {"greeting=ready&endAfter=0", "status", 0, ChannelError::peerEnded},
        {"packetSize=4", "status", 0.05, ChannelError::timedOut},
        {"selfTestFails=1", "test", 0, ChannelError::failed},
        {"selfTestDelay=60000", "test", 0.05, ChannelError::timedOut},
        {"searchDelay=60000", "test", 0.05, ChannelError::timedOut},
        {"answer=x", "parameters", 0.05, ChannelError::timedOut},
    };
    for (const auto& it : cases) {
        SCOPED_TRACE(std::string(it.script) + " " + it.operation);
        StatusStage stage(it.script);
        if (it.timeout > 0)
            stage.setParameter(kDMParameterOperationTimeoutKey, it.timeout);
        const std::string name = it.operation;
        const auto operation = name == "status" ? stage.service->newStatusOperation()
                               : name == "test" ? stage.service->newSelfTestOperation()
                                                : stage.service->newParametersOperation(2);
        EXPECT_EQ(stage.outcome(operation), "failed:" + codeOf(it.code));
        EXPECT_EQ(codeOf(stage.service->lastError()), codeOf(it.code));
        EXPECT_TRUE(stage.service->operations().empty());
        // The same when its caller waits.
        stage.service->setLastError({});
        stage.service->performOperation(operation);
        EXPECT_FALSE(operation->isOperationSucceed());
        EXPECT_EQ(codeOf(stage.service->lastError()), codeOf(it.code));
    }
}

TEST(SimulatedStatusService, CanceledOperationsEndAtOnceAndTellNothing)
{
    StatusStage stage("selfTestDelay=60000"); // and no answer ever
    const auto status = stage.service->newStatusOperation();
    const auto test = stage.service->newSelfTestOperation();
    for (const auto& operation : {status, test})
        stage.service->scheduleOperation(operation);
    for (const auto& operation : {test, status}) { // one that waits, and one that runs
        operation->cancel();
        EXPECT_TRUE(operation->isFinished());
    }
    EXPECT_TRUE(stage.service->operations().empty());

    // The queue is free again as soon as the work has noticed; canceled while it works, the new run counts alone.
    stage.setParameter(kDMParameterPollingIntervalKey, 0.01);
    EXPECT_EQ(stage.outcome(stage.service->newParametersOperation(1)).substr(0, 1), "{");
    stage.service->scheduleOperation(test);
    test->cancel();
    stage.setParameter(kDMParameterOperationTimeoutKey, 0.05);
    EXPECT_EQ(stage.outcome(test), "failed:" + codeOf(ChannelError::timedOut));
    EXPECT_EQ(stage.told.size(), 1u);

    // One whose caller waits is canceled by another thread.
    stage.service->setParameters({});
    auto canceling = std::async(std::launch::async, [&] {
        while (!test->isActive())
            std::this_thread::yield();
        test->cancel();
    });
    stage.service->performOperation(test);
    canceling.get();
    EXPECT_TRUE(test->isCanceled());
    EXPECT_TRUE(test->result().isNull());
}

TEST(SimulatedStatusService, MayBeReleasedAnyTime)
{
    StatusStage stage("selfTestDelay=60000&answer=ready");
    const auto test = stage.service->newSelfTestOperation();
    stage.service->scheduleOperation(test);
    const std::weak_ptr<SimulatedStatusService> watched = stage.service;
    stage.service.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(test->isCanceled() && test->isFinished());
    EXPECT_FALSE(test->delegate());

    StatusStage inReport("answer=ready");
    inReport.delegate->operationDidFinish = [&](SimulatedStatusService&, SimulatedOperation&) {
        inReport.service.reset();
    };
    inReport.service->scheduleOperation(inReport.service->newStatusOperation());
    EXPECT_TRUE(turnUntil([&] { return !inReport.service; }));

    // While its caller waits.
    StatusStage waiting("selfTestDelay=60000");
    waiting.setParameter(kDMParameterOperationTimeoutKey, 0.2);
    const auto timer = dmf::RunLoopTimer::create(dmf::Date::now(), 0, dmf::RunLoopTimer::Repeat::no,
                                                 [&](dmf::RunLoopTimer&) { waiting.service.reset(); });
    RunLoop::current()->addTimer(timer, waiting.service->runLoopMode());
    const auto performed = waiting.service->newSelfTestOperation();
    waiting.service->performOperation(performed);
    EXPECT_FALSE(waiting.service);
    EXPECT_EQ(codeOf(performed->error()), codeOf(ChannelError::timedOut));
}

TEST(SimulatedStatusService, OperationsFollowTheServiceToAnotherMode)
{
    StatusStage stage("answer=ready&answerDelay=20");
    const auto first = stage.service->newStatusOperation();
    const auto second = stage.service->newStatusOperation();
    stage.service->scheduleOperation(first);
    // Those that are scheduled already stay where they are.
    stage.service->removeFromRunLoop(RunLoop::current(), kDefaultRunLoopMode);
    stage.service->scheduleInRunLoop(RunLoop::current(), "another mode");
    stage.service->scheduleOperation(second);
    EXPECT_TRUE(turnUntil([&] { return first->isFinished(); }));
    while (!second->isFinished() &&
           RunLoop::current()->runMode("another mode", dmf::Date::afterNow(10), true) == RunLoop::Result::handledSource)
        ;
    EXPECT_THAT(stage.told, ElementsAre("ready", "ready"));
}
