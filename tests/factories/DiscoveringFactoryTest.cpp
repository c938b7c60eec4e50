#include <dmf/ADMDiscoveringFactory.h>

#include <gmock/gmock.h>

#include <dmf/ADMChannelFactoryImp.h>
#include <dmf/ADMFunctionalServiceImp.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/NotificationCenter.h>

#include <future>
#include <stdexcept>

#include "discovery/FakeBackEnd.h"
#include "service/FakeTransport.h"

using testing::ElementsAre;
using testing::UnorderedElementsAre;

DMF_REGISTER_CLASS(FakeServiceDiscovery)
{
    described.implements<IDMServiceDiscovery>(&FakeServiceDiscovery::make);
}

namespace {
using Names = std::vector<std::string>;

class PrintFactory final : public ADMDiscoveringFactory {
public:
    Names channelNamesToDiscover() override { return {"Print"}; }
    dmf::Dictionary discoveryParameters() override { return {{"depth", 2}}; }
};

/// Keeps the names of the factory's notifications together with what its delegate heard.
class Listener {
public:
    explicit Listener(const ADMDiscoveringFactory& factory)
    {
        for (const auto name : {kDMDiscoveryWillStartNotification, kDMDiscoveryDidStopNotification,
                                kDMDiscoveryDidFindServiceNotification, kDMDiscoveryDidRemoveServiceNotification,
                                kDMDiscoveryDidNotDiscoverNotification, kDMDiscoveryFilterDidChangeNotification})
            observations_.push_back(dmf::NotificationCenter::defaultCenter().addObserver(
                name, [this](const dmf::Notification& it) { note(it); }, factory.notificationSender()));
    }
    Names heard;

private:
    void note(const dmf::Notification& it)
    {
        std::string text = it.name;
        if (const auto service = it.userInfo[kDMServiceInfoKey].objectAs<ADMServiceInfo>())
            text += " " + service->connectionParams()[kIPAddressParam].description();
        else if (!it.userInfo.empty())
            text += " " + it.userInfo[kDMErrorDescription].description();
        heard.push_back(text);
    }
    std::vector<dmf::NotificationCenter::Observation> observations_;
};

std::shared_ptr<ADMDiscoveryFilter> anyService()
{
    return std::make_shared<TestFilter>([](auto&) { return true; });
}

/// A functional service, which the plug-in manager knows as a mock.
constexpr dmf::Protocol kMockStatus("MockStatusInterface", {}, {});
} // namespace

DMF_REGISTER_CLASS(FactoryMockProvider)
{
    described.implements<ADMIOProvider>([] { return std::make_shared<FakeTransport>(std::shared_ptr<IDMDevice>()); });
}
DMF_REGISTER_CLASS(FactoryMockStatus)
{
    described.implements<ADMInterfaceInitialization>([](std::shared_ptr<ADMServiceInfo> info) {
        if (info->modelName() == "Bad")
            throw std::runtime_error("no such model");
        return ADMFunctionalServiceImp::initWithServiceInfo(std::move(info));
    });
}

TEST(DiscoveringFactory, TheDelegateHearsBeforeTheObservers)
{
    DiscoveryHost host;
    const auto factory = std::make_shared<PrintFactory>();
    Listener listener(*factory);
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    delegate->discoveryDidFindService = [&](ADMDiscovery& discovery, const auto&) {
        EXPECT_EQ(&discovery, static_cast<ADMDiscovery*>(factory.get()));
        listener.heard.push_back("delegate");
    };
    factory->setDelegate(delegate);
    // What is filled in later is not heard.
    delegate->discoveryDidStop = [&](auto&) { listener.heard.push_back("delegate"); };
    factory->setDelegate(delegate);

    factory->scheduleDiscovery();
    factory->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    factory->setFilter(anyService());
    factory->scheduleDiscoveryForConnectionTypes({"Fake"});
    ASSERT_TRUE(turnUntil([&] { return host.backEnds.alive().size() == 1; }));
    EXPECT_EQ(host.backEnds.alive()[0]->parameters()["depth"], 2);
    // Before that the creating thread may not have set the delegate.
    ASSERT_TRUE(
        turnUntil([&] { return factory->discoveryModel()->sources()[0].state == ADMDiscoverySource::State::running; }));
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.1"));
    host.backEnds.alive()[0]->report(serviceAt("10.0.0.1"), true);
    FakeServiceDiscovery::settle();
    factory->stop();
    ASSERT_TRUE(turnUntil([&] { return listener.heard.size() >= 7; }));
    EXPECT_THAT(listener.heard,
                ElementsAre("DMDiscoveryDidNotDiscoverNotification Discovery is not scheduled in any run loop or mode",
                            "DMDiscoveryFilterDidChangeNotification", "DMDiscoveryWillStartNotification", "delegate",
                            "DMDiscoveryDidFindServiceNotification 10.0.0.1",
                            "DMDiscoveryDidRemoveServiceNotification 10.0.0.1", "DMDiscoveryDidStopNotification"));
}

TEST(DiscoveringFactory, AResetEndsTheDiscoverySilentlyAndKeepsItsSettings)
{
    DiscoveryHost host;
    const auto factory = std::make_shared<PrintFactory>();
    Listener listener(*factory);
    const auto loop = dmf::RunLoop::current();
    const auto filter = anyService();
    factory->scheduleInRunLoop(loop, "A");
    factory->scheduleInRunLoop(loop, "B");
    factory->setFilter(filter);
    factory->setParametersToResolve(dmf::Dictionary{{"x", true}}, "Fake");
    factory->scheduleDiscoveryForConnectionTypes({"Fake"});
    const auto old = factory->discoveryModel();
    ASSERT_TRUE(turnUntil([&] { return listener.heard.size() >= 2; }, "A"));

    factory->resetChannelNamesToDiscover({"Scan", "Echo"});
    const auto model = factory->discoveryModel();
    EXPECT_NE(model, old);
    EXPECT_FALSE(old->isStarted());
    EXPECT_FALSE(model->isStarted());
    EXPECT_THAT(model->channelNames(), UnorderedElementsAre("Scan", "Echo"));
    EXPECT_EQ(model->filter(), filter);
    EXPECT_EQ(model->runLoop(), loop);
    EXPECT_THAT(model->runLoopModes(), ElementsAre("A", "B"));
    EXPECT_EQ(model->parameters()["depth"], 2);
    EXPECT_EQ(*model->connectionsParametersToResolve()["Fake"].asDictionary(), (dmf::Dictionary{{"x", true}}));
    loop->runMode("A", dmf::Date::now());
    EXPECT_THAT(listener.heard,
                ElementsAre("DMDiscoveryFilterDidChangeNotification", "DMDiscoveryWillStartNotification"));

    factory->resetChannelNamesToDiscover({});
    EXPECT_THAT(factory->discoveryModel()->channelNames(), ElementsAre("Print"));
}

TEST(DiscoveringFactory, AResetInsideASynchronousRunKeepsTheClientsScheduling)
{
    DiscoveryHost host;
    host.backEnds.onStart = [](FakeServiceDiscovery& it) {
        it.report(serviceAt("10.0.0.1"));
        return 0U;
    };
    const auto factory = std::make_shared<PrintFactory>();
    factory->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    int finds = 0;
    delegate->discoveryDidFindService = [&](ADMDiscovery&, const auto&) {
        if (++finds == 1)
            factory->resetChannelNamesToDiscover({"Scan"});
    };
    factory->setDelegate(delegate);
    EXPECT_EQ(factory->performDiscoveryForConnectionTypes({"Fake"}, 30)->size(), 1U);
    const auto model = factory->discoveryModel();
    EXPECT_EQ(model->runLoop(), dmf::RunLoop::current());
    EXPECT_THAT(model->runLoopModes(), ElementsAre(std::string(dmf::kDefaultRunLoopMode)));
    factory->scheduleDiscoveryForConnectionTypes({"Fake"});
    EXPECT_TRUE(turnUntil([&] { return finds == 2; }));
}

TEST(DiscoveringFactory, GivesItsParametersToADiscoveryForNamesThatWereChosenFirst)
{
    const auto factory = std::make_shared<PrintFactory>();
    factory->resetChannelNamesToDiscover({"Scan"});
    EXPECT_EQ(factory->discoveryModel()->parameters()["depth"], 2);
}

TEST(DiscoveringFactory, WhatADelegateOrAnObserverThrowsKeepsNobodyFromHearing)
{
    HostFixture host;
    const auto factory = std::make_shared<PrintFactory>();
    int heard = 0;
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    delegate->discoveryDidNotDiscover = [&](ADMDiscovery&, const auto&) {
        ++heard;
        throw 5;
    };
    delegate->discoveryFilterDidChange = [](ADMDiscovery&) {};
    factory->setDelegate(delegate);
    delegate->discoveryFilterDidChange = nullptr; // emptied later, it is not called
    const auto observe = [&](std::string_view name) {
        return dmf::NotificationCenter::defaultCenter().addObserver(
            name,
            [&](const dmf::Notification&) {
                ++heard;
                throw 5;
            },
            factory->notificationSender());
    };
    const auto refusals = observe(kDMDiscoveryDidNotDiscoverNotification);
    const auto changes = observe(kDMDiscoveryFilterDidChangeNotification);
    EXPECT_NO_THROW(factory->scheduleDiscovery());
    EXPECT_EQ(heard, 2);
    EXPECT_NO_THROW(factory->setFilter(anyService()));
    EXPECT_EQ(heard, 3);
}

TEST(DiscoveringFactory, AFactoryThatGoesIsNotHeardOfAgain)
{
    DiscoveryHost host;
    auto factory = std::make_shared<PrintFactory>();
    Listener listener(*factory);
    factory->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    factory->scheduleDiscoveryForConnectionTypes({"Fake"});
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    delegate->discoveryWillStart = [&](auto&) { factory.reset(); };
    factory->setDelegate(delegate);
    const auto model = factory->discoveryModel();
    ASSERT_TRUE(turnUntil([&] { return !factory; }));
    model->stop();
    EXPECT_TRUE(turnUntil([&] { return host.backEnds.alive().empty(); }));
    EXPECT_THAT(listener.heard, ElementsAre("DMDiscoveryWillStartNotification"));

    const auto bare = std::make_shared<ADMDiscoveringFactory>();
    EXPECT_THROW(bare->scheduleDiscovery(), dmf::UnrecognizedOperation);
}

TEST(ChannelFactory, LooksForTheChannelNamesThatItIsGivenAndKeepsTheRunLoopOfTheLastScheduling)
{
    const auto factory = std::make_shared<ADMChannelFactoryImp>();
    factory->setServiceNamesToDiscover({"Scan", "Print"});
    const auto model = factory->discoveryModel();
    EXPECT_THAT(model->channelNames(), UnorderedElementsAre("Scan", "Print"));
    factory->resetChannelNamesToDiscover({"Print", "Scan", "Print"});
    EXPECT_EQ(factory->discoveryModel(), model);
    factory->resetChannelNamesToDiscover({"Echo"});
    EXPECT_NE(factory->discoveryModel(), model);

    const auto here = dmf::RunLoop::current();
    const auto there = std::async(std::launch::async, [] { return dmf::RunLoop::current(); }).get();
    factory->scheduleInRunLoop(here, "M1");
    factory->removeFromRunLoop(there, "M1");
    EXPECT_THAT(factory->modes(), ElementsAre("M1"));
    factory->scheduleInRunLoop(there, "M2");
    EXPECT_THAT(factory->modes(), ElementsAre("M2"));
    EXPECT_EQ(factory->discoveryModel()->runLoop(), there);
    factory->removeFromRunLoop(there, "M2");
    EXPECT_EQ(factory->runLoop(), there);
}

TEST(BaseFactory, MakesServicesUnderAMockSchemeOnly)
{
    const HostFixture host;
    auto& manager = *ADMPlugInManager::sharedManager();
    const dmf::Dictionary described{
        {std::string(kDMMockScheme), "mockusb"},
        {std::string(kDMMockIOProvider), "FactoryMockProvider"},
        {std::string(kDMMockFactories),
         dmf::Dictionary{{"services", dmf::Dictionary{{"MockStatusInterface", "FactoryMockStatus"}}}}}};
    manager.registerMockImplementors(described);
    const ADMBaseFactory factory;
    const auto mock = ADMServiceInfoImp::initWithURI(
        "MOCKUSB://QLDMF/v=1&connectionType=Mock&vendorName=QL&modelName=Model%209", kPrinterDeviceClass);
    ASSERT_TRUE(mock);
    const auto made = factory.implementerWithInterface(kMockStatus, mock);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->serviceInfo(), mock);

    static constexpr dmf::Protocol unknown("NobodysInterface", {}, {});
    EXPECT_FALSE(factory.implementerWithInterface(unknown, mock));
    EXPECT_FALSE(factory.implementerWithInterface(kMockStatus, nullptr));
    EXPECT_FALSE(factory.implementerWithInterface(kMockStatus, serviceAt("10.0.0.1")));
    const auto bad = ADMServiceInfoImp::initWithURI(
        "mockusb://QLDMF/v=1&connectionType=Mock&vendorName=QL&modelName=Bad", kPrinterDeviceClass);
    EXPECT_FALSE(factory.implementerWithInterface(kMockStatus, bad));
    manager.unregisterMockImplementorsForScheme("mockusb");
}
