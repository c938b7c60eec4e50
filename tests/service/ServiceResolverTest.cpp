#include <dmf/ADMGenericServiceResolver.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <future>
#include <stdexcept>

#include <gmock/gmock.h>

#include "ResolverSupport.h"
#include "support/LogCapture.h"
#include "support/LoopThread.h"

using dmf::Dictionary;
using dmf::RunLoop;
using testing::ElementsAre;
using namespace resolvertest;
using namespace std::chrono_literals;

using ServiceResolver = ResolverFixture;

TEST_F(ServiceResolver, ADeviceFoundAtOnceResolvesTheService)
{
    const LogCapture log(host);
    const auto device = deviceOfQL();
    Dictionary wanted;
    device->onRetrieve = [&](const Dictionary& parameters, const auto&) { wanted = parameters; };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(60);
    EXPECT_THAT(client.events, ElementsAre("will"));
    ASSERT_TRUE(serveUntil([&] { return client.isTold(); }));

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
    ASSERT_TRUE(serveUntil([&] { return client.events.size() == 4; }));
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
    ASSERT_TRUE(serveUntil([&] { return transport->attempts() == 1; }));
    for (int attempt = 2; attempt <= 3; ++attempt) {
        EXPECT_EQ(transport->attempts(), attempt - 1); // not before a second has passed
        host.advance(1s);
        ASSERT_TRUE(serveUntil([&] { return transport->attempts() == attempt; }));
    }
    EXPECT_FALSE(client.isTold());
    host.advance(30s);
    ASSERT_TRUE(serveUntil([&] { return client.isTold(); }));

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
    const auto service = serviceOn(std::make_shared<FakeTransport>(
        [&](const auto&, const auto&, int attempt) { return attempt == 1 ? nullptr : device; }));
    int told = 0;
    const auto delegate = std::make_shared<ADMServiceResolverDelegate>();
    delegate->serviceResolverDidFinish = [&](ADMServiceResolver&) { ++told; };
    const auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->setDelegate(delegate);
    resolver->resolveService(service, 30, {}, RunLoop::current(), kModes);
    EXPECT_TRUE(resolver->isValid());
    ASSERT_TRUE(serveUntil([&] { return !resolver->lastError().empty(); }));
    EXPECT_EQ(resolver->lastError()["DMErrorDescription"], "Cannot resolve device under specified URI.");
    host.advance(1s);
    ASSERT_TRUE(serveUntil([&] { return resolver->resolvedDevice() != nullptr; }));
    EXPECT_TRUE(resolver->isResolving());
    EXPECT_EQ(told, 0);

    host.advance(30s);
    ASSERT_TRUE(serveUntil([&] { return told == 1 && !resolver->isValid(); }));
    EXPECT_EQ(resolver->lastError(), kTimedOut);
    EXPECT_EQ(resolver->resolvedDevice(), device);
    EXPECT_EQ(resolver->resolvedInfo(), device->info);
    EXPECT_EQ(told, 1);

    // The worker has ended, so it can be started again, and now the device is there at once.
    resolver->resolveService(service, 30, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return told == 2; }));
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
    ASSERT_TRUE(serveUntil([&] { return asked.load(); }));
    host.advance(5s);
    ASSERT_TRUE(serveUntil([&] { return client.isTold(); }));
    EXPECT_EQ(client.error, kTimedOut);
    release.set_value();
    EXPECT_TRUE(serveUntil([&] { return canceled.load(); }));
    EXPECT_EQ(client.events.size(), 2u);
}

TEST_F(ServiceResolver, StopCancelsTheDeviceAndTellsNobodyAndMayComeBeforeTheStart)
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
    ASSERT_TRUE(serveUntil([&] { return asked.load(); }));
    client.service->stop(); // while the device is busy: it is not waited for
    release.set_value();
    EXPECT_TRUE(canceled.get_future().get());
    host.advance(60s);
    EXPECT_TRUE(serveUntil([] { return workers() == 0; }));
    (void)RunLoop::current()->runMode(kMode, dmf::Date::afterNow(0.01));
    EXPECT_THAT(client.events, ElementsAre("will"));
    EXPECT_EQ(client.service->serviceState(), 0u);

    const auto transport = std::make_shared<FakeTransport>(device);
    Client early(transport);
    early.delegate->serviceInfoWillResolve = [](ADMServiceInfo& service) { service.stop(); };
    early.service->resolveWithTimeout(60);
    EXPECT_EQ(workers() + transport->attempts(), 0);
}

TEST_F(ServiceResolver, AReachableDeviceOfAnotherVendorIsRefusedWithoutAnError)
{
    const LogCapture log(host);
    Client client(std::make_shared<FakeTransport>(std::make_shared<FakeDevice>(Dictionary{{"vendorName", "acme"}})));
    client.service->resolveWithTimeout(60);
    ASSERT_TRUE(serveUntil([&] { return client.isTold(); }));
    EXPECT_THAT(client.events, ElementsAre("will", "did not"));
    EXPECT_TRUE(client.error.empty());
    EXPECT_EQ(client.service->serviceState(), 2u);
    EXPECT_THAT(log.lines(), ElementsAre("D  ServiceInfo: cannot resolve service info for device 'socket://10.0.0.5' "
                                         "(error (null))"));
}

TEST_F(ServiceResolver, WithoutRunLoopOrModeItFailsAtOnce)
{
    const auto transport = std::make_shared<FakeTransport>(deviceOfQL());
    const auto service = serviceOn(transport);
    for (const bool hasRunLoop : {true, false}) {
        bool told = false;
        const auto delegate = std::make_shared<ADMServiceResolverDelegate>();
        auto resolver = std::make_shared<ADMGenericServiceResolver>();
        delegate->serviceResolverDidFinish = [&](ADMServiceResolver& finished) {
            told = true;
            resolver.reset(); // the resolver lives on until the call is over
            EXPECT_EQ(finished.lastError()["DMErrorCode"], -1);
            EXPECT_EQ(finished.lastError()["DMErrorDescription"],
                      "invalid run loop or mode parameters passed to "
                      "[resolveService:withTimeout:parameters:onRunLoop:inModes:]");
        };
        resolver->setDelegate(delegate);
        resolver->resolveService(service, 1, {}, hasRunLoop ? RunLoop::current() : nullptr,
                                 hasRunLoop ? std::vector<std::string>() : kModes);
        EXPECT_TRUE(told);
    }
    EXPECT_EQ(transport->attempts(), 0);
}

TEST_F(ServiceResolver, WhatAnAttemptThrowsIsAFailedAttempt)
{
    const auto device = deviceOfQL();
    device->onRetrieve = [](const auto&, const auto&) { throw std::runtime_error("device on fire"); };
    Client client(std::make_shared<FakeTransport>(device));
    client.service->resolveWithTimeout(3);
    ASSERT_TRUE(serveUntil([&] {
        host.advance(100ms);
        return client.isTold();
    }));
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
    LoopThread other("C");
    service->scheduleInRunLoop(other.loop(), "C");
    EXPECT_EQ(result("B"), RunLoop::Result::finished);

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
    static const char anchor = 0;
    factory.addResolverClass(nullptr, "Pigeon");
    EXPECT_TRUE(isGeneric(factory.newServiceResolverWithConnectionType("Pigeon")));
    factory.addResolverClass(std::make_shared<dmf::Class>("MakesNone", &anchor), "Pigeon");
    EXPECT_EQ(factory.newServiceResolverWithConnectionType("Pigeon"), nullptr);
    auto throwing = std::make_shared<dmf::Class>("Throwing", &anchor);
    throwing->implements<ADMServiceResolver>([]() -> std::shared_ptr<ADMServiceResolver> { throw 7; });
    factory.addResolverClass(throwing, "Pigeon");
    EXPECT_EQ(factory.newServiceResolverWithConnectionType("Pigeon"), nullptr);
    factory.addResolverClass(ADMGenericServiceResolver::resolverClass(), "Pigeon");
}
