#include <dmf/ADMGenericServiceResolver.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>

#include <cmath>
#include <future>
#include <limits>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "FakeTransport.h"
#include "support/HostFixture.h"
#include "support/LogCapture.h"

using dmf::Dictionary;
using dmf::RunLoop;
using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

constexpr std::string_view kMode = "TestMode";
const std::vector<std::string> kModes{std::string(kMode)};
const Dictionary kTimedOut{{"DMErrorCode", -1}, {"DMErrorDescription", "Resolving timed out."}};

/// How many threads of the process resolve something.
int workers()
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        count += name == "dmf-resolver";
    }
    return count;
}

/// Serves the mode on the calling thread until the condition holds; false when it does not within ten seconds.
bool turnUntil(const std::function<bool()>& condition, std::string_view mode = kMode)
{
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        if (RunLoop::current()->runMode(mode, dmf::Date::afterNow(0.002)) == RunLoop::Result::finished)
            std::this_thread::yield();
    }
    return true;
}

std::shared_ptr<FakeDevice> deviceOfQL()
{
    return std::make_shared<FakeDevice>(
        Dictionary{{"vendorName", "QL"}, {"modelName", "N"}, {"params", Dictionary{{"SerialNumber", "7"}}}});
}

/// A service in TestMode whose events are written down.
struct Client {
    explicit Client(std::shared_ptr<ADMIOProvider> transport)
        : service(ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, std::move(transport)))
    {
        delegate->serviceInfoWillResolve = [this](ADMServiceInfo&) { events.emplace_back("will"); };
        delegate->serviceInfoDidResolve = [this](ADMServiceInfo&) { events.emplace_back("did"); };
        delegate->serviceInfoDidNotResolve = [this](ADMServiceInfo&, const Dictionary& why) {
            events.emplace_back("did not");
            error = why;
        };
        service->setDelegate(delegate);
        service->scheduleInRunLoop(nullptr, kMode);
    }
    bool isTold() const { return events.size() > 1; }

    std::vector<std::string> events;
    Dictionary error;
    const std::shared_ptr<ADMServiceInfoDelegate> delegate = std::make_shared<ADMServiceInfoDelegate>();
    std::shared_ptr<ADMServiceInfoImp> service;
};

class ServiceResolver : public testing::Test {
protected:
    /// No worker may see the host go; and none may be left over.
    ~ServiceResolver() override
    {
        EXPECT_TRUE(turnUntil([this] {
            host.advance(1s);
            return workers() == 0;
        }));
    }
    HostFixture host;
};

} // namespace

TEST_F(ServiceResolver, ADeviceFoundAtOnceResolvesTheService)
{
    const LogCapture log(host);
    const auto device = deviceOfQL();
    Dictionary wanted;
    device->onRetrieve = [&](const Dictionary& parameters, const auto&) { wanted = parameters; };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(60);
    EXPECT_THAT(client.events, ElementsAre("will"));
    ASSERT_TRUE(turnUntil([&] { return client.isTold(); }));

    EXPECT_THAT(client.events, ElementsAre("will", "did"));
    EXPECT_EQ(client.service->serviceState(), 1u);
    EXPECT_EQ(client.service->device(), device);
    EXPECT_EQ(client.service->modelName(), "N");
    EXPECT_EQ(client.service->connectionParams()["SerialNumber"], "7");
    EXPECT_EQ(wanted, (Dictionary{{"deviceName", true}, {"SerialNumber", true}}));
    EXPECT_THAT(log.lines(),
                ElementsAre("D  ServiceInfo: resolved service info for device 'socket://10.0.0.5' device"));

    // It can be resolved again.
    client.service->resolveServiceWithParameters({}, 60);
    ASSERT_TRUE(turnUntil([&] { return client.events.size() == 4; }));
    EXPECT_TRUE(wanted.empty());
}

TEST_F(ServiceResolver, ADeviceThatIsNeverFoundTimesOut)
{
    const LogCapture log(host);
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    Client client(transport);
    client.service->setDevice(deviceOfQL());
    client.service->resolveWithTimeout(30);
    client.service->resolveWithTimeout(600); // one resolution at a time
    ASSERT_TRUE(turnUntil([&] { return transport->attempts() == 1; }));
    for (int attempt = 2; attempt <= 3; ++attempt) {
        EXPECT_EQ(transport->attempts(), attempt - 1); // not before a second has passed
        host.advance(1s);
        ASSERT_TRUE(turnUntil([&] { return transport->attempts() == attempt; }));
    }
    EXPECT_FALSE(client.isTold());
    host.advance(30s);
    ASSERT_TRUE(turnUntil([&] { return client.isTold(); }));

    EXPECT_THAT(client.events, ElementsAre("will", "did not"));
    EXPECT_EQ(client.error, kTimedOut);
    EXPECT_EQ(client.service->serviceState(), 2u);
    EXPECT_THAT(log.lines(), ElementsAre("D  ServiceInfo: cannot resolve service info for device 'socket://10.0.0.5' "
                                         "(error " +
                                         kTimedOut.description() + ")"));
    EXPECT_EQ(client.service->device(), nullptr); // forgotten, and not found anew
}

// The error of the first attempt stays: a device that turns up later is kept, but the resolution ends by its time-out.
TEST_F(ServiceResolver, ADeviceFoundAtTheSecondAttemptStillTimesOut)
{
    const auto device = deviceOfQL();
    const auto service =
        ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass,
                                       std::make_shared<FakeTransport>([&](const auto&, const auto&, int attempt) {
                                           return attempt == 1 ? nullptr : device;
                                       }));
    int told = 0;
    const auto delegate = std::make_shared<ADMServiceResolverDelegate>();
    delegate->serviceResolverDidFinish = [&](ADMServiceResolver&) { ++told; };
    const auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->setDelegate(delegate);
    resolver->resolveService(service, 30, {}, RunLoop::current(), kModes);
    EXPECT_TRUE(resolver->isValid());
    ASSERT_TRUE(turnUntil([&] { return !resolver->lastError().empty(); }));
    EXPECT_EQ(resolver->lastError()["DMErrorDescription"], "Cannot resolve device under specified URI.");
    host.advance(1s);
    ASSERT_TRUE(turnUntil([&] { return resolver->resolvedDevice() != nullptr; }));
    EXPECT_TRUE(resolver->isResolving());
    EXPECT_EQ(told, 0);

    host.advance(30s);
    ASSERT_TRUE(turnUntil([&] { return told == 1 && !resolver->isValid(); }));
    EXPECT_EQ(resolver->lastError(), kTimedOut);
    EXPECT_EQ(resolver->resolvedDevice(), device);
    EXPECT_EQ(resolver->resolvedInfo(), device->info);
    EXPECT_EQ(told, 1);

    // The worker has ended, so it can be started again, and now the device is there at once.
    resolver->resolveService(service, 30, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(turnUntil([&] { return told == 2; }));
    EXPECT_TRUE(resolver->lastError().empty());
}

TEST_F(ServiceResolver, ATimeOutWhileTheDeviceAnswersIsATimeOut)
{
    std::promise<void> release;
    std::atomic<bool> asked{false}, canceled{false};
    const auto device = deviceOfQL();
    device->onRetrieve = [&](const auto&, const std::shared_ptr<IDMDeviceHandler>& handler) {
        asked = true;
        release.get_future().wait();
        canceled = handler->isCanceledForDevice(device.get());
    };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(5);
    ASSERT_TRUE(turnUntil([&] { return asked.load(); }));
    host.advance(5s);
    ASSERT_TRUE(turnUntil([&] { return client.isTold(); }));
    EXPECT_EQ(client.error, kTimedOut);
    release.set_value();
    EXPECT_TRUE(turnUntil([&] { return canceled.load(); }));
    EXPECT_EQ(client.events.size(), 2u);
}

TEST_F(ServiceResolver, StopCancelsTheDeviceAndTellsNobody)
{
    std::promise<void> release;
    std::promise<bool> canceled;
    std::atomic<bool> asked{false};
    const auto device = deviceOfQL();
    device->onRetrieve = [&](const auto&, const std::shared_ptr<IDMDeviceHandler>& handler) {
        EXPECT_FALSE(handler->isCanceledForDevice(nullptr));
        asked = true;
        release.get_future().wait();
        canceled.set_value(handler->isCanceledForDevice(nullptr));
    };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(60);
    ASSERT_TRUE(turnUntil([&] { return asked.load(); }));
    client.service->stop(); // while the device is busy: it is not waited for
    release.set_value();
    EXPECT_TRUE(canceled.get_future().get());
    host.advance(60s);
    EXPECT_TRUE(turnUntil([] { return workers() == 0; }));
    (void)RunLoop::current()->runMode(kMode, dmf::Date::afterNow(0.01));
    EXPECT_THAT(client.events, ElementsAre("will"));
    EXPECT_EQ(client.service->serviceState(), 0u);
}

TEST_F(ServiceResolver, ADelegateMayStopBeforeTheStart)
{
    const auto transport = std::make_shared<FakeTransport>(deviceOfQL());
    Client client(transport);
    client.delegate->serviceInfoWillResolve = [](ADMServiceInfo& service) { service.stop(); };
    client.service->resolveWithTimeout(60);
    EXPECT_EQ(workers(), 0);
    EXPECT_EQ(transport->attempts(), 0);
}

TEST_F(ServiceResolver, AReachableDeviceOfAnotherVendorIsRefusedWithoutAnError)
{
    const LogCapture log(host);
    Client client(std::make_shared<FakeTransport>(std::make_shared<FakeDevice>(Dictionary{{"vendorName", "acme"}})));
    client.service->resolveWithTimeout(60);
    ASSERT_TRUE(turnUntil([&] { return client.isTold(); }));
    EXPECT_THAT(client.events, ElementsAre("will", "did not"));
    EXPECT_TRUE(client.error.empty());
    EXPECT_EQ(client.service->serviceState(), 2u);
    EXPECT_THAT(log.lines(), ElementsAre("D  ServiceInfo: cannot resolve service info for device 'socket://10.0.0.5' "
                                         "(error (null))"));
}

TEST_F(ServiceResolver, WithoutRunLoopOrModeItFailsAtOnce)
{
    const auto transport = std::make_shared<FakeTransport>(deviceOfQL());
    const auto service = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
    int told = 0;
    const auto delegate = std::make_shared<ADMServiceResolverDelegate>();
    auto resolver = std::make_shared<ADMGenericServiceResolver>();
    delegate->serviceResolverDidFinish = [&](ADMServiceResolver& finished) {
        ++told;
        resolver.reset(); // the resolver lives on until the call is over
        EXPECT_EQ(finished.lastError()["DMErrorCode"], -1);
        EXPECT_EQ(finished.lastError()["DMErrorDescription"],
                  "invalid run loop or mode parameters passed to "
                  "[resolveService:withTimeout:parameters:onRunLoop:inModes:]");
    };
    resolver->setDelegate(delegate);
    resolver->resolveService(service, 1, {}, nullptr, kModes);
    EXPECT_EQ(told, 1);
    resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->setDelegate(delegate);
    resolver->resolveService(service, 1, {}, RunLoop::current(), {});
    EXPECT_EQ(told, 2);
    EXPECT_EQ(transport->attempts(), 0);
}

TEST_F(ServiceResolver, WhatAnAttemptThrowsIsAFailedAttempt)
{
    const auto device = deviceOfQL();
    device->onRetrieve = [](const auto&, const auto&) { throw std::runtime_error("device on fire"); };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(3);
    ASSERT_TRUE(turnUntil([&] {
        host.advance(100ms);
        return client.isTold();
    }));
    EXPECT_EQ(client.error, kTimedOut);
}

TEST_F(ServiceResolver, TheLastReferenceMayGoInTheDelegateCall)
{
    Client client(std::make_shared<FakeTransport>(deviceOfQL()));
    const auto weak = std::weak_ptr(client.service);
    bool told = false;
    client.delegate->serviceInfoDidResolve = [&](ADMServiceInfo& service) {
        client.service.reset();
        EXPECT_EQ(service.serviceState(), 1u);
        told = true;
    };
    client.service->resolveWithTimeout(60);
    ASSERT_TRUE(turnUntil([&] { return told; }));
    EXPECT_TRUE(turnUntil([&] { return weak.expired(); }));
}

TEST_F(ServiceResolver, TheLastReferenceMayGoOnTheWorker)
{
    std::promise<void> release;
    std::atomic<bool> asked{false};
    auto device = deviceOfQL();
    device->onRetrieve = [&](const auto&, const auto&) {
        asked = true;
        release.get_future().wait();
    };
    const auto weakDevice = std::weak_ptr(device);
    auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->resolveService(ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass,
                                                            std::make_shared<FakeTransport>(device)),
                             60, {}, RunLoop::current(), kModes);
    device.reset();
    ASSERT_TRUE(turnUntil([&] { return asked.load(); }));
    const auto weak = std::weak_ptr(resolver);
    resolver.reset();
    EXPECT_FALSE(weak.expired()); // the worker works for it
    release.set_value();
    EXPECT_TRUE(turnUntil([&] { return weak.expired() && weakDevice.expired() && workers() == 0; }));
}

TEST_F(ServiceResolver, ASleepingWorkerKeepsNothingAlive)
{
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->resolveService(ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport), 60,
                             {}, RunLoop::current(), kModes);
    ASSERT_TRUE(turnUntil([&] { return !resolver->lastError().empty(); }));
    const auto weak = std::weak_ptr(resolver);
    resolver.reset();
    EXPECT_TRUE(turnUntil([&] { return weak.expired() && workers() == 0; })); // without the clock's moving
    EXPECT_EQ(transport->attempts(), 1);
}

// A service and its resolver own each other while a resolution runs. When the run loop's thread ends there is nobody
// left to end it, yet neither thread nor objects may stay behind.
TEST_F(ServiceResolver, NothingOutlivesTheRunLoopsThread)
{
    std::weak_ptr<ADMServiceInfoImp> weak;
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    std::thread([&] {
        const auto service = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
        service->resolveWithTimeout(1'000'000);
        weak = service;
    }).join();
    ASSERT_TRUE(turnUntil([&] { return transport->attempts() == 1; }));
    host.advance(1s);
    EXPECT_TRUE(turnUntil([&] { return weak.expired() && workers() == 0; }));
}

// Likewise when the device was found, but the thread ends before it could tell.
TEST_F(ServiceResolver, NothingOutlivesTheRunLoopsThreadAfterTheWorkersEnd)
{
    std::weak_ptr<ADMServiceInfoImp> weak;
    std::weak_ptr<FakeDevice> weakDevice;
    std::thread([&] {
        const auto device = deviceOfQL();
        const auto transport = std::make_shared<FakeTransport>(device);
        const auto service = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
        service->resolveWithTimeout(60);
        weak = service;
        weakDevice = device;
        while (transport->attempts() == 0 || workers() > 0)
            std::this_thread::yield();
    }).join();
    EXPECT_TRUE(turnUntil([&] { return weak.expired() && weakDevice.expired(); }));
}

TEST_F(ServiceResolver, AClientMayLetGoOfAServiceThatIsToBeTold)
{
    const auto transport = std::make_shared<FakeTransport>(deviceOfQL());
    Client client(transport);
    client.service->resolveWithTimeout(60);
    const auto weak = std::weak_ptr(std::exchange(client.service, nullptr));
    while (transport->attempts() == 0 || workers() > 0)
        std::this_thread::yield();
    EXPECT_FALSE(weak.expired());
    EXPECT_TRUE(turnUntil([&] { return client.isTold(); }));
    EXPECT_TRUE(turnUntil([&] { return weak.expired(); }));
}

TEST_F(ServiceResolver, ARunLoopThatHasEndedCountsAsNone)
{
    Client client(std::make_shared<FakeTransport>(deviceOfQL()));
    std::shared_ptr<RunLoop> ended;
    std::thread([&] { ended = RunLoop::current(); }).join();
    client.service->scheduleInRunLoop(ended, kMode);
    client.service->resolveWithTimeout(60);
    EXPECT_TRUE(turnUntil([&] { return client.isTold(); }, dmf::kDefaultRunLoopMode));
    client.service->removeFromRunLoop(RunLoop::current(), dmf::kDefaultRunLoopMode);
}

TEST_F(ServiceResolver, ARestartHasATimeOutOfItsOwn)
{
    const auto device = deviceOfQL();
    std::atomic<bool> isThere{true};
    const auto transport =
        std::make_shared<FakeTransport>([&](const auto&, const auto&, int) { return isThere ? device : nullptr; });
    const auto service = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
    int told = 0;
    const auto delegate = std::make_shared<ADMServiceResolverDelegate>();
    delegate->serviceResolverDidFinish = [&](ADMServiceResolver&) { ++told; };
    const auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->setDelegate(delegate);
    resolver->resolveService(service, 30, {}, RunLoop::current(), kModes);
    // It ends, but the word of it is not delivered before the next one starts: that one must not take it for its own.
    while (resolver->isValid())
        std::this_thread::yield();
    isThere = false;
    resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(turnUntil([&] { return transport->attempts() == 2; }));
    host.advance(31s); // the first one's time is over
    for (int i = 0; i < 3; ++i)
        (void)RunLoop::current()->runMode(kMode, dmf::Date::afterNow(0.002));
    EXPECT_EQ(told, 0);
    EXPECT_TRUE(resolver->isResolving());
    host.advance(30s);
    EXPECT_TRUE(turnUntil([&] { return told == 1; }));
    EXPECT_EQ(resolver->lastError(), kTimedOut);
}

TEST_F(ServiceResolver, ATimeOutThatIsNoTimeIsTold)
{
    for (const double timeout : {std::nan(""), -std::numeric_limits<double>::infinity(), -1.0}) {
        Client client(std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>()));
        client.service->resolveServiceWithParameters({}, timeout);
        ASSERT_TRUE(turnUntil([&] { return client.isTold(); })) << timeout;
        EXPECT_EQ(client.error, kTimedOut);
    }
}

TEST_F(ServiceResolver, AReplacedDeviceGoesOutsideTheLock)
{
    /// Its end waits for a thread that asks the handler, as the end of a search does.
    struct AskingDevice final : IDMDevice {
        std::shared_ptr<IDMDeviceHandler> handler;
        bool isReachable() override { return true; }
        Dictionary retrieveParameters(const Dictionary&, std::shared_ptr<IDMDeviceHandler> given) override
        {
            handler = std::move(given);
            return {{"vendorName", "QL"}};
        }
        ~AskingDevice() override
        {
            auto answer = std::async(std::launch::async, [&] { return handler->isCanceledForDevice(this); });
            EXPECT_EQ(answer.wait_for(10s), std::future_status::ready);
        }
    };
    const auto transport =
        std::make_shared<FakeTransport>([](const auto&, const auto&, int) { return std::make_shared<AskingDevice>(); });
    const auto service = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
    const auto resolver = std::make_shared<ADMGenericServiceResolver>();
    for (int i = 0; i < 2; ++i) {
        resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
        ASSERT_TRUE(turnUntil([&] { return !resolver->isValid(); }));
        EXPECT_TRUE(resolver->resolvedDevice());
    }
}

TEST_F(ServiceResolver, WhatADelegateThrowsDoesNotBlockTheNextStart)
{
    const auto transport = std::make_shared<FakeTransport>(deviceOfQL());
    Client client(transport);
    const auto will = std::exchange(client.delegate->serviceInfoWillResolve, [](ADMServiceInfo& service) {
        service.resolveWithTimeout(60); // one at a time
        throw std::runtime_error("not now");
    });
    EXPECT_THROW(client.service->resolveWithTimeout(60), std::runtime_error);
    EXPECT_EQ(transport->attempts(), 0);
    client.delegate->serviceInfoWillResolve = will;
    client.service->resolveWithTimeout(60);
    EXPECT_TRUE(turnUntil([&] { return client.isTold(); }));
}

TEST_F(ServiceResolver, AWorkerGivesUpWhenTheTimeOutPassesUnserved)
{
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    Client client(transport);
    client.service->resolveWithTimeout(2);
    ASSERT_TRUE(turnUntil([&] { return transport->attempts() == 1; }, "AnotherMode"));
    host.advance(2s);
    ASSERT_TRUE(turnUntil([] { return workers() == 0; }, "AnotherMode"));
    EXPECT_THAT(client.events, ElementsAre("will")); // the client is told in its own mode only
    ASSERT_TRUE(turnUntil([&] { return client.isTold(); }));
    EXPECT_EQ(client.error, kTimedOut);
}

TEST_F(ServiceResolver, SchedulingGivesTheModeSomethingToWaitFor)
{
    const auto loop = RunLoop::current();
    const auto result = [&](std::string_view mode) { return loop->runMode(mode, dmf::Date::now()); };
    const auto service = ADMServiceInfoImp::serviceInfoWithURI("socket://10.0.0.5", kPrinterDeviceClass);
    service->scheduleInRunLoop(loop, "A");
    service->scheduleInRunLoop(nullptr, "B");
    EXPECT_EQ(result("A"), RunLoop::Result::timedOut);
    EXPECT_EQ(result("B"), RunLoop::Result::timedOut);
    service->removeFromRunLoop(loop, "A");
    EXPECT_EQ(result("A"), RunLoop::Result::finished);
    service->removeFromRunLoop(loop, "never scheduled");
    service->removeFromRunLoop(nullptr, "B");
    EXPECT_EQ(result("B"), RunLoop::Result::timedOut);

    // Another run loop takes over: the modes of the earlier one are forgotten.
    std::promise<std::shared_ptr<RunLoop>> promise;
    std::promise<void> release;
    std::thread other([&] {
        promise.set_value(RunLoop::current());
        release.get_future().wait();
    });
    service->scheduleInRunLoop(promise.get_future().get(), "C");
    EXPECT_EQ(result("B"), RunLoop::Result::finished);
    release.set_value();
    other.join();

    // Without a mode the service counts as scheduled in the default mode, but its port stands in none.
    service->scheduleInRunLoop(loop, std::nullopt);
    EXPECT_EQ(result(dmf::kDefaultRunLoopMode), RunLoop::Result::finished);
    service->scheduleInRunLoop(loop, dmf::kDefaultRunLoopMode);
    EXPECT_EQ(result(dmf::kDefaultRunLoopMode), RunLoop::Result::timedOut);
}

TEST_F(ServiceResolver, TheFactoryGoesByConnectionType)
{
    auto& factory = ADMServiceResolver::sharedFactory();
    const auto isGeneric = [](const std::shared_ptr<ADMServiceResolver>& resolver) {
        return std::dynamic_pointer_cast<ADMGenericServiceResolver>(resolver) != nullptr;
    };
    EXPECT_EQ(factory.newServiceResolverWithConnectionType(std::nullopt), nullptr);
    EXPECT_TRUE(isGeneric(factory.newServiceResolverWithConnectionType("USB")));
    EXPECT_TRUE(isGeneric(factory.newServiceResolverWithConnectionType(ADMGenericServiceResolver::connectionType())));
    EXPECT_NE(factory.newServiceResolverWithConnectionType("USB"), factory.newServiceResolverWithConnectionType("USB"));

    static const char anchor = 0;
    struct Threaded final : ADMThreadedServiceResolver {};
    auto threaded = std::make_shared<dmf::Class>("Threaded", &anchor);
    threaded->implements<ADMServiceResolver>([] { return std::make_shared<Threaded>(); });
    factory.addResolverClass(nullptr, "Pigeon");
    EXPECT_TRUE(isGeneric(factory.newServiceResolverWithConnectionType("Pigeon")));
    factory.addResolverClass(std::make_shared<dmf::Class>("MakesNone", &anchor), "Pigeon");
    EXPECT_EQ(factory.newServiceResolverWithConnectionType("Pigeon"), nullptr);
    auto throwing = std::make_shared<dmf::Class>("Throwing", &anchor);
    throwing->implements<ADMServiceResolver>([]() -> std::shared_ptr<ADMServiceResolver> { throw 7; });
    factory.addResolverClass(throwing, "Pigeon");
    EXPECT_EQ(factory.newServiceResolverWithConnectionType("Pigeon"), nullptr);
    factory.addResolverClass(threaded, "Pigeon");
    EXPECT_NE(std::dynamic_pointer_cast<Threaded>(factory.newServiceResolverWithConnectionType("Pigeon")), nullptr);
    factory.addResolverClass(ADMGenericServiceResolver::resolverClass(), "Pigeon");

    EXPECT_THROW((void)ADMBaseServiceResolver::connectionType(), dmf::UnrecognizedOperation);
    EXPECT_THROW(std::make_shared<Threaded>()->findService(), dmf::UnrecognizedOperation);
}
