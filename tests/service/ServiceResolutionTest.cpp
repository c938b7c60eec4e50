#include <dmf/ADMBaseServiceResolver.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <future>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "ResolverSupport.h"

using dmf::Dictionary;
using dmf::RunLoop;
using testing::ElementsAre;
using namespace resolvertest;
using namespace std::chrono_literals;

namespace {

/// A resolver of a plug-in, as the test scripts it. It finishes when it is told to.
class ScriptedResolver final : public ADMBaseServiceResolver {
public:
    static inline std::function<void(ScriptedResolver&)> onStart, onError, onStop;
    static inline std::weak_ptr<ScriptedResolver> last;

    void resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout, const Dictionary& parameters,
                        std::shared_ptr<RunLoop> runLoop, const std::vector<std::string>& modes) override
    {
        ADMBaseServiceResolver::resolveService(service, timeout, parameters, runLoop, modes);
        given = std::move(service);
        setResolvedInfo({{"vendorName", "QL"}, {"modelName", "N"}}, deviceOfQL());
        call(onStart);
    }
    Dictionary lastError() const override
    {
        call(onError);
        return ADMBaseServiceResolver::lastError();
    }
    void stop() override
    {
        ADMBaseServiceResolver::stop();
        call(onStop);
    }
    void finish() { tellDelegate(); }
    std::shared_ptr<ADMServiceInfo> given;

private:
    void call(const std::function<void(ScriptedResolver&)>& script) const
    {
        if (script)
            script(const_cast<ScriptedResolver&>(*this));
    }
};

constexpr const char* kType = "Scripted";

/// A client of a service that scripted resolvers resolve.
struct ScriptedClient : Client {
    ScriptedClient() : Client(nullptr)
    {
        service = ADMServiceInfoImp::initWithSpec({{"connectionType", kType}, {"URI", "socket://10.0.0.5"}});
        service->setDelegate(delegate);
        service->scheduleInRunLoop(nullptr, kMode);
    }
};

void registerResolvers(std::function<std::shared_ptr<ADMServiceResolver>()> make)
{
    static const char anchor = 0;
    auto made = std::make_shared<dmf::Class>("ScriptedResolver", &anchor);
    made->implements<ADMServiceResolver>(std::move(make));
    ADMServiceResolver::sharedFactory().addResolverClass(made, kType);
}

class ServiceResolution : public ResolverFixture {
protected:
    ServiceResolution()
    {
        registerResolvers([] {
            const auto made = std::make_shared<ScriptedResolver>();
            ScriptedResolver::last = made;
            return made;
        });
    }
    ~ServiceResolution() override
    {
        ScriptedResolver::onStart = ScriptedResolver::onError = ScriptedResolver::onStop = {};
    }
};

} // namespace

TEST_F(ServiceResolution, AStopBeforeTheOutcomeIsTakenOverSilencesIt)
{
    ScriptedClient client;
    client.service->resolveWithTimeout(60);
    ScriptedResolver::onError = [&](ScriptedResolver&) {
        ScriptedResolver::onError = {};
        std::async(std::launch::async, [&] { client.service->stop(); }).get();
    };
    ScriptedResolver::last.lock()->finish();
    EXPECT_THAT(client.events, ElementsAre("will"));
    EXPECT_EQ(client.service->serviceState(), 0u);
    EXPECT_EQ(client.service->modelName(), std::nullopt);

    client.service->resolveWithTimeout(60);
    ScriptedResolver::last.lock()->finish();
    EXPECT_THAT(client.events, ElementsAre("will", "will", "did"));
}

// A stop on another thread comes back while nobody is being told: what it silenced stays silent.
TEST_F(ServiceResolution, NothingIsToldOnceAStopElsewhereHasReturned)
{
    for (int round = 0; round < 300; ++round) {
        ScriptedClient client;
        std::atomic<bool> stopped{false}, late{false};
        client.delegate->serviceInfoDidResolve = [&](ADMServiceInfo&) { late = late || stopped; };
        client.service->resolveWithTimeout(60);
        std::promise<void> go;
        std::thread stopper([&] {
            go.get_future().wait();
            client.service->stop();
            stopped = true;
        });
        const auto resolver = ScriptedResolver::last.lock();
        go.set_value();
        resolver->finish();
        stopper.join();
        ASSERT_FALSE(late) << round;
    }
}

TEST_F(ServiceResolution, TheDelegateMayStopOrStartAnewInItsCall)
{
    ScriptedClient client;
    const auto did = client.delegate->serviceInfoDidResolve;
    client.delegate->serviceInfoDidResolve = [&](ADMServiceInfo& service) {
        did(service);
        service.stop();
        service.resolveWithTimeout(60);
    };
    client.service->resolveWithTimeout(60);
    const auto first = ScriptedResolver::last.lock();
    first->finish();
    const auto second = ScriptedResolver::last.lock();
    ASSERT_NE(first, second);
    first->finish(); // nobody listens any more
    EXPECT_THAT(client.events, ElementsAre("will", "did", "will"));
    client.delegate->serviceInfoDidResolve = did;
    second->finish();
    EXPECT_THAT(client.events, ElementsAre("will", "did", "will", "did"));
}

TEST_F(ServiceResolution, WithoutAResolverTheFailureIsToldAtOnceAndSaysWhy)
{
    const auto expectTold = [](Client& client, std::string_view why) {
        client.service->setServiceState(1);
        client.service->resolveWithTimeout(60);
        EXPECT_THAT(client.events, ElementsAre("will", "did not"));
        EXPECT_EQ(client.error[kDMErrorCode], -1);
        EXPECT_THAT(*client.error.string(kDMErrorDescription), testing::HasSubstr(why));
        EXPECT_EQ(client.service->serviceState(), 2u);
        client.service->resolveWithTimeout(60); // nothing is left of the one before
        EXPECT_EQ(client.events.size(), 4u);
    };
    Client typeless(nullptr);
    typeless.service = ADMServiceInfoImp::initWithSpec({});
    typeless.service->setDelegate(typeless.delegate);
    expectTold(typeless, "connection type");

    registerResolvers([] { return nullptr; });
    ScriptedClient refused;
    expectTold(refused, "\"Scripted\"");
}

TEST_F(ServiceResolution, TheLastReferenceMayGoInEveryCallOfTheDelegate)
{
    ScriptedClient announcing;
    const auto weak = std::weak_ptr(announcing.service);
    announcing.delegate->serviceInfoWillResolve = [&](ADMServiceInfo&) { announcing.service.reset(); };
    announcing.service->resolveWithTimeout(60);
    EXPECT_TRUE(weak.expired());

    registerResolvers([] { return nullptr; });
    ScriptedClient failing;
    const auto other = std::weak_ptr(failing.service);
    failing.delegate->serviceInfoDidNotResolve = [&](ADMServiceInfo& service, const Dictionary&) {
        failing.service.reset();
        EXPECT_EQ(service.serviceState(), 2u);
    };
    failing.service->resolveWithTimeout(60);
    EXPECT_TRUE(other.expired());
}

TEST_F(ServiceResolution, ReleasingAServiceEndsItsResolution)
{
    // One of them is at its device, the others sleep until the next attempt.
    std::promise<void> release;
    std::atomic<bool> canceled{false};
    std::shared_ptr<IDMDeviceHandler> asked;
    std::atomic<bool> isAsking{false};
    auto device = deviceOfQL();
    device->onRetrieve = [&](const auto&, const std::shared_ptr<IDMDeviceHandler>& handler) {
        isAsking = true;
        release.get_future().wait();
        canceled = handler->isCanceledForDevice(nullptr);
    };
    const auto busy = std::make_shared<FakeTransport>(device);
    const auto silent = std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>());
    std::vector<std::shared_ptr<ADMServiceInfoImp>> services{serviceOn(busy)};
    for (int i = 0; i < 20; ++i)
        services.push_back(serviceOn(silent));
    for (const auto& service : services)
        service->resolveWithTimeout(600);
    ASSERT_TRUE(serveUntil([&] { return isAsking && silent->attempts() == 20; }));
    const auto weak = std::weak_ptr(services.front());
    services.clear();
    EXPECT_TRUE(weak.expired());
    EXPECT_TRUE(serveUntil([] { return workers() == 1; }));
    release.set_value();
    EXPECT_TRUE(serveUntil([] { return workers() == 0; }));
    EXPECT_TRUE(canceled);
}

TEST_F(ServiceResolution, ASearchForTheDeviceElsewhereDoesNotHoldUpTheOutcome)
{
    std::promise<void> release;
    std::atomic<bool> searching{false};
    const auto transport = std::make_shared<FakeTransport>(
        [&](const auto&, const std::shared_ptr<IDMDeviceHandler>& handler, int) -> std::shared_ptr<IDMDevice> {
            if (!handler) { // not for the resolver
                searching = true;
                release.get_future().wait();
            }
            return nullptr;
        });
    Client client(transport);
    auto found = std::async(std::launch::async, [&] { return client.service->device(); });
    ASSERT_TRUE(serveUntil([&] { return searching.load(); }));

    std::promise<void> told;
    std::thread watch([&, outcome = told.get_future()]() mutable {
        EXPECT_EQ(outcome.wait_for(20s), std::future_status::ready) << "the run loop waits for the search";
        release.set_value();
    });
    client.service->resolveWithTimeout(5);
    host.advance(5s);
    EXPECT_TRUE(serveUntil([&] { return client.isTold(); }));
    told.set_value();
    watch.join();
    EXPECT_EQ(client.error, kTimedOut);
    EXPECT_EQ(found.get(), nullptr);
}

TEST_F(ServiceResolution, WhatResolversAndDelegatesThrowIsTheirOwnFailure)
{
    // A resolver that throws at its start, when it is asked for its error, when it is stopped.
    const auto fail = [](ScriptedResolver&) { throw 5; };
    ScriptedClient client;
    ScriptedResolver::onStart = fail;
    ScriptedResolver::onStop = fail;
    client.service->resolveWithTimeout(60);
    EXPECT_THAT(client.events, ElementsAre("will", "did not"));
    EXPECT_EQ(client.error[kDMErrorCode], -1);

    ScriptedResolver::onStart = {};
    ScriptedResolver::onError = fail;
    client.service->resolveWithTimeout(60);
    ScriptedResolver::last.lock()->finish();
    EXPECT_THAT(client.events, ElementsAre("will", "did not", "will", "did not"));
    EXPECT_EQ(client.error[kDMErrorCode], -1);

    // What the delegate throws does not undo the resolution, and the next one can start.
    ScriptedResolver::onError = {};
    client.delegate->serviceInfoWillResolve = [](ADMServiceInfo& service) {
        service.resolveWithTimeout(60); // one at a time
        throw std::runtime_error("not now");
    };
    client.delegate->serviceInfoDidResolve = [&](ADMServiceInfo&) {
        client.events.emplace_back("did");
        throw 7;
    };
    for (int i = 0; i < 2; ++i) {
        client.service->resolveWithTimeout(60);
        ScriptedResolver::last.lock()->finish();
        EXPECT_EQ(client.events.back(), "did");
        EXPECT_EQ(client.service->serviceState(), 1u);
    }
    EXPECT_EQ(client.events.size(), 6u);
}

TEST_F(ServiceResolution, OneSearchServesAllWhoAskForTheDevice)
{
    std::promise<void> release;
    const auto released = release.get_future().share();
    const auto device = deviceOfQL();
    const auto transport = std::make_shared<FakeTransport>([&](const auto&, const auto&, int) {
        released.wait();
        return device;
    });
    const auto service = serviceOn(transport);
    std::vector<std::future<std::shared_ptr<IDMDevice>>> found;
    for (int i = 0; i < 4; ++i)
        found.push_back(std::async(std::launch::async, [&] { return service->device(); }));
    ASSERT_TRUE(serveUntil([&] { return transport->attempts() == 1; }));

    // A device that is set meanwhile is the one for whoever still waits, and nobody waits to set it.
    const auto other = deviceOfQL();
    service->setDevice(other);
    EXPECT_EQ(service->device(), other);
    release.set_value();
    for (auto& each : found)
        EXPECT_EQ(each.get(), other);
    EXPECT_EQ(service->device(), other);
    EXPECT_EQ(transport->attempts(), 1);

    // One that was forgotten during the search is not brought back by it.
    service->setDevice(nullptr);
    EXPECT_EQ(service->device(), device);
    EXPECT_EQ(transport->attempts(), 2);
}
