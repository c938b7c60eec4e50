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

#include "ResolverSupport.h"

using dmf::Dictionary;
using dmf::RunLoop;
using testing::ElementsAre;
using namespace resolvertest;
using namespace std::chrono_literals;

using ResolverLife = ResolverFixture;

TEST_F(ResolverLife, TheLastReferenceMayGoInTheDelegateCall)
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
    ASSERT_TRUE(serveUntil([&] { return told; }));
    EXPECT_TRUE(serveUntil([&] { return weak.expired(); }));
}

TEST_F(ResolverLife, TheLastReferenceMayGoOnTheWorker)
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
    resolver->resolveService(serviceOn(std::make_shared<FakeTransport>(device)), 60, {}, RunLoop::current(), kModes);
    device.reset();
    ASSERT_TRUE(serveUntil([&] { return asked.load(); }));
    const auto weak = std::weak_ptr(resolver);
    resolver.reset();
    EXPECT_FALSE(weak.expired()); // the worker works for it
    release.set_value();
    EXPECT_TRUE(serveUntil([&] { return weak.expired() && weakDevice.expired() && workers() == 0; }));
}

TEST_F(ResolverLife, ASleepingWorkerKeepsNothingAlive)
{
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    auto resolver = std::make_shared<ADMGenericServiceResolver>();
    resolver->resolveService(serviceOn(transport), 60, {}, RunLoop::current(), kModes);
    ASSERT_TRUE(serveUntil([&] { return !resolver->lastError().empty(); }));
    const auto weak = std::weak_ptr(resolver);
    resolver.reset();
    EXPECT_TRUE(serveUntil([&] { return weak.expired() && workers() == 0; })); // without the clock's moving
    EXPECT_EQ(transport->attempts(), 1);
}

// When the run loop's thread has ended, nobody can be told any more, and the work for it ends.
TEST_F(ResolverLife, NobodyWorksForARunLoopWhoseThreadHasEnded)
{
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    const auto service = serviceOn(transport);
    std::thread([&] { service->resolveWithTimeout(1'000'000); }).join();
    ASSERT_TRUE(serveUntil([&] { return transport->attempts() == 1; }));
    host.advance(1s);
    EXPECT_TRUE(serveUntil([&] { return workers() == 0; }));
    EXPECT_EQ(transport->attempts(), 1);
}

TEST_F(ResolverLife, ARunLoopThatHasEndedCountsAsNone)
{
    Client client(std::make_shared<FakeTransport>(deviceOfQL()));
    std::shared_ptr<RunLoop> ended;
    std::thread([&] { ended = RunLoop::current(); }).join();
    client.service->scheduleInRunLoop(ended, kMode);
    client.service->resolveWithTimeout(60);
    EXPECT_TRUE(turnUntil([&] { return client.isTold(); }, dmf::kDefaultRunLoopMode));
    client.service->removeFromRunLoop(RunLoop::current(), dmf::kDefaultRunLoopMode);
}

TEST_F(ResolverLife, ARestartHasATimeOutOfItsOwn)
{
    const auto device = deviceOfQL();
    std::atomic<bool> isThere{true};
    const auto transport =
        std::make_shared<FakeTransport>([&](const auto&, const auto&, int) { return isThere ? device : nullptr; });
    const auto service = serviceOn(transport);
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
    ASSERT_TRUE(serveUntil([&] { return transport->attempts() == 2; }));
    host.advance(31s); // the first one's time is over
    for (int i = 0; i < 3; ++i)
        (void)RunLoop::current()->runMode(kMode, dmf::Date::afterNow(0.002));
    EXPECT_EQ(told, 0);
    EXPECT_TRUE(resolver->isResolving());
    host.advance(30s);
    EXPECT_TRUE(serveUntil([&] { return told == 1; }));
    EXPECT_EQ(resolver->lastError(), kTimedOut);
}

TEST_F(ResolverLife, ATimeOutThatIsNoTimeIsTold)
{
    for (const double timeout : {std::nan(""), -std::numeric_limits<double>::infinity(), -1.0}) {
        Client client(std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>()));
        client.service->resolveServiceWithParameters({}, timeout);
        ASSERT_TRUE(serveUntil([&] { return client.isTold(); })) << timeout;
        EXPECT_EQ(client.error, kTimedOut);
    }
}

TEST_F(ResolverLife, AReplacedDeviceGoesOutsideTheLock)
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
            EXPECT_EQ(answer.wait_for(30s), std::future_status::ready);
        }
    };
    const auto transport =
        std::make_shared<FakeTransport>([](const auto&, const auto&, int) { return std::make_shared<AskingDevice>(); });
    const auto service = serviceOn(transport);
    const auto resolver = std::make_shared<ADMGenericServiceResolver>();
    for (int i = 0; i < 2; ++i) {
        resolver->resolveService(service, 60, {}, RunLoop::current(), kModes);
        ASSERT_TRUE(serveUntil([&] { return !resolver->isValid(); }));
        EXPECT_TRUE(resolver->resolvedDevice());
    }
}

TEST_F(ResolverLife, AWorkerGivesUpWhenTheTimeOutPassesUnserved)
{
    const auto transport = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    Client client(transport);
    client.service->resolveWithTimeout(2);
    ASSERT_TRUE(turnUntil([&] { return transport->attempts() == 1; }, "AnotherMode"));
    host.advance(2s);
    ASSERT_TRUE(turnUntil([] { return workers() == 0; }, "AnotherMode"));
    EXPECT_THAT(client.events, ElementsAre("will")); // the client is told in its own mode only
    ASSERT_TRUE(serveUntil([&] { return client.isTold(); }));
    EXPECT_EQ(client.error, kTimedOut);
}
