#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/platform/DesktopServices.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "auth/KeyringThreads.h"
#include "auth/PlainKeyring.h"
#include "auth/Service.h"
#include "auth/SilentBus.h"
#include "platform/secrets/Keyring.h"
#include "support/HostFixture.h"
#include "support/KeyringFixture.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Named = ADMUsernameAndPasswordAuthenticationInfo;
using dmf::KeyringState;

constexpr const char* kUri = "ipp://printer.example/ipp/print";

bool keep(std::string_view username, std::string_view password, const std::shared_ptr<NamedService>& where)
{
    constexpr std::int32_t persistence = 7;
    return Named::initWithUsername(username, password, persistence)->storeInKeychainForServiceInfo(where);
}

auto find(const std::shared_ptr<NamedService>& where)
{
    return Named::initFromKeychainForServiceInfo(where);
}

/// A machine whose session bus is the given one.
struct MachineOn : HostFixture {
    explicit MachineOn(const std::string& address) { setEnvironment("DBUS_SESSION_BUS_ADDRESS", address); }
};

TEST(Keyring, GivesBackWhatWasStoredAndShowsItToOtherPrograms)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    const auto printer = service(kUri, "Model 9");
    EXPECT_EQ(find(printer), nullptr);
    ASSERT_TRUE(keep("eva", "p\xC3\xA4ss w\xC3\xB6rd", printer));

    const auto found = find(printer);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->username(), "eva");
    EXPECT_EQ(found->password(), "p\xC3\xA4ss w\xC3\xB6rd");
    EXPECT_EQ(found->persistence(), 0);
    EXPECT_EQ(keyring.lookUp({"server", kUri, "user", "eva", "label", "Model 9", "authtype", "basic"}),
              "p\xC3\xA4ss w\xC3\xB6rd");
    const auto shown = keyring.run({"/usr/bin/secret-tool", "search", "server", kUri}).out;
    EXPECT_NE(shown.find("label = Model 9\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("schema = com.ql.dmf.Credential\n"), std::string::npos) << shown;

    EXPECT_EQ(find(service(kUri, "Model 8")), nullptr) << "another label";
    EXPECT_EQ(find(service("ipp://other", "Model 9")), nullptr) << "another server";
    EXPECT_EQ(dmf::keyringState(), KeyringState::ready);
}

TEST(Keyring, KeepsTheFirstOfTwoItemsWithTheSameAttributes)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    const auto printer = service(kUri, "Model 9");
    ASSERT_TRUE(keep("eva", "first", printer));
    EXPECT_FALSE(keep("eva", "second", printer));
    EXPECT_EQ(find(printer)->password(), "first");

    EXPECT_TRUE(keep("adam", "third", printer)) << "another user";
    EXPECT_TRUE(keep("eva", "fourth", service(kUri, "Model 8"))) << "another label";

    // Also where the two are stored at once.
    const auto scanner = service("ipp://scanner");
    std::atomic<int> stored = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] { stored += keep("eva", "password", scanner) ? 1 : 0; });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(stored, 1);
}

TEST(Keyring, UsesTheUriAsLabelOfAServiceWithoutModelAndNothingWithoutUri)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    ASSERT_TRUE(keep("eva", "", service(kUri)));
    EXPECT_TRUE(find(service(kUri)));
    EXPECT_EQ(find(service(kUri))->password(), "");
    EXPECT_EQ(find(service(kUri, "Model 9")), nullptr);
    EXPECT_TRUE(keyring.lookUp({"server", kUri, "label", kUri}));

    EXPECT_FALSE(keep("eva", "password", service(std::nullopt, "Model 9")));
    EXPECT_EQ(find(service(std::nullopt, "Model 9")), nullptr);
    EXPECT_FALSE(Named::initWithUsername("eva", "password", 0)->storeInKeychainForServiceInfo(nullptr));
    EXPECT_EQ(Named::initFromKeychainForServiceInfo(nullptr), nullptr);
}

TEST(Keyring, FindsWhatOtherProgramsStoredAsFarAsItIsACredential)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    keyring.store("any", {"server", "a", "user", "adam", "label", "Model 9", "authtype", "basic", "more", "x"},
                  "apple");
    const auto found = find(service("a", "Model 9"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->username(), "adam");
    EXPECT_EQ(found->password(), "apple");

    keyring.store("no user", {"server", "b", "label", "b", "authtype", "basic"}, "apple");
    EXPECT_EQ(find(service("b")), nullptr);
    keyring.store("no text", {"server", "c", "label", "c", "authtype", "basic", "user", "adam"}, "\xFF\xFE");
    EXPECT_EQ(find(service("c")), nullptr);
}

TEST(Keyring, RefusesTextsThatNoMessageCanCarry)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    const std::string withZero("a\0b", 3);
    for (const std::string& bad : {std::string("\xFF"), withZero}) {
        EXPECT_FALSE(keep(bad, "password", service(kUri)));
        EXPECT_FALSE(keep("eva", "password", service(bad)));
        EXPECT_FALSE(keep("eva", "password", service(kUri, bad)));
        EXPECT_EQ(find(service(bad)), nullptr);
    }
    EXPECT_FALSE(keep("eva", "\xFF", service(kUri))) << "it could never be handed back";
    const std::string longPassword(100'000, 'x');
    EXPECT_TRUE(keep("eva", longPassword, service(kUri)));
    EXPECT_EQ(find(service(kUri))->password(), longPassword);
}

TEST(Keyring, ThatIsLockedHoldsNothingAndTakesNothingWhereNobodyCanBeAsked)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    ASSERT_TRUE(keep("eva", "password", service(kUri)));
    keyring.lock();
    EXPECT_EQ(dmf::keyringState(), KeyringState::locked);

    const auto begin = Clock::now();
    EXPECT_EQ(find(service(kUri)), nullptr);
    EXPECT_FALSE(keep("eva", "password", service("other")));
    EXPECT_LT(Clock::now() - begin, 4s);
}

TEST(Keyring, GivesAPersonMoreTimeButNotForEver)
{
    KeyringFixture keyring(Person::silent);
    MachineOn machine(keyring.bus.address());
    keyring.lock();

    const dmf::internal::Bounds bounds{4.0, 5.0};
    const auto begin = Clock::now();
    const auto place = [](double) { return dmf::internal::KeyringPlace{kUri, kUri}; };
    EXPECT_FALSE(dmf::internal::storeInKeyring(place, "eva", dmf::Secret("password"), bounds));
    const auto took = Clock::now() - begin;
    EXPECT_GE(took, 5s) << "nobody was asked, or not for long enough";
    EXPECT_LT(took, 15s);
    EXPECT_TRUE(noKeyringThreadIsLeft()) << "the question was not taken back";
}

TEST(Keyring, WaitsForNoPersonOnceThereIsNobodyLeftToAsk)
{
    for (const bool isBus : {true, false}) {
        SCOPED_TRACE(isBus ? "the bus ends" : "the keyring's program ends");
        KeyringFixture keyring(Person::silent);
        MachineOn machine(keyring.bus.address());
        keyring.lock();
        auto storing = std::async(std::launch::async, [] { return keep("eva", "password", service(kUri)); });
        ASSERT_TRUE(keyring.bus.waitUntilCalled());
        (isBus ? keyring.bus.daemon() : keyring.program()).signal(SIGKILL);
        ASSERT_EQ(storing.wait_for(10s), std::future_status::ready);
        EXPECT_FALSE(storing.get());
    }
}

TEST(Keyring, IsUsedOnceThePersonWhoIsAskedHasUnlockedIt)
{
    for (const bool agrees : {true, false}) {
        SCOPED_TRACE(agrees);
        KeyringFixture keyring(agrees ? Person::agrees : Person::refuses);
        MachineOn machine(keyring.bus.address());
        keyring.lock();
        EXPECT_EQ(keep("eva", "password", service(kUri)), agrees);
        EXPECT_EQ(find(service(kUri)) != nullptr, agrees);
        EXPECT_EQ(dmf::keyringState(), agrees ? KeyringState::ready : KeyringState::locked);
    }
}

TEST(Keyring, LeavesNoDescriptorBehindWhenTheBusDiesUnderACall)
{
    const auto round = [] {
        SessionBus bus("org.freedesktop.secrets");
        MachineOn machine(bus.address());
        auto finding = std::async(std::launch::async, [] { return find(service(kUri)); });
        ASSERT_TRUE(bus.waitUntilCalled());
        bus.daemon().signal(SIGKILL);
        EXPECT_EQ(finding.get(), nullptr);
    };
    round(); // GDBus opens some for the life of the process
    ASSERT_TRUE(noKeyringThreadIsLeft());
    const auto before = openDescriptors();
    for (int i = 0; i < 4; ++i)
        round();
    ASSERT_TRUE(noKeyringThreadIsLeft());
    const auto deadline = Clock::now() + 5s;
    while (openDescriptors() > before && Clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_LE(openDescriptors(), before);
}

/// Says what it is once it may.
struct SlowDevice : FakeDevice {
    std::promise<void> mayAnswer;
    std::shared_future<void> answer = mayAnswer.get_future().share();
    dmf::Dictionary retrieveParameters(const dmf::Dictionary&, std::shared_ptr<IDMDeviceHandler>) override
    {
        answer.wait();
        return {{"vendorName", "QL"}, {"modelName", "Model 9"}};
    }
};

TEST(Keyring, DoesNotWaitForAServiceThatAsksItsDeviceForTheModel)
{
    KeyringFixture keyring;
    MachineOn machine(keyring.bus.address());
    const auto device = std::make_shared<SlowDevice>();
    const auto info = ADMServiceInfoImp::serviceInfoWithURI(kUri, "com.ql.printer");
    info->setDevice(device);
    const auto credential = Named::initWithUsername("eva", "password", 0);
    const auto begin = Clock::now();
    auto storing = std::async(std::launch::async, [&] { return credential->storeInKeychainForServiceInfo(info); });
    EXPECT_EQ(Named::initFromKeychainForServiceInfo(info), nullptr);
    EXPECT_FALSE(storing.get());
    EXPECT_LT(Clock::now() - begin, 4s);

    device->mayAnswer.set_value();
    EXPECT_TRUE(noKeyringThreadIsLeft());
    EXPECT_EQ(find(service(kUri, "Model 9")), nullptr) << "what is late stores nothing";
    EXPECT_TRUE(credential->storeInKeychainForServiceInfo(info));
    EXPECT_TRUE(find(service(kUri, "Model 9"))) << "under the model's name";
}

TEST(Keyring, AsksAServiceForItsModelOnOneThreadHoweverManyWait)
{
    SessionBus bus;
    MachineOn machine(bus.address());
    const auto device = std::make_shared<SlowDevice>();
    const auto info = ADMServiceInfoImp::serviceInfoWithURI(kUri, "com.ql.printer");
    info->setDevice(device);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&] { EXPECT_EQ(Named::initFromKeychainForServiceInfo(info), nullptr); });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(keyringThreads(), 1) << "those that nobody waits for any more";
    device->mayAnswer.set_value();
    EXPECT_TRUE(noKeyringThreadIsLeft());
}

TEST(Keyring, ThatTakesPasswordsInPlainTextOnlyIsHandedNone)
{
    for (const bool isConfused : {false, true}) {
        SCOPED_TRACE(isConfused);
        SessionBus bus;
        PlainKeyring keyring(bus.address(), isConfused);
        MachineOn machine(bus.address());
        EXPECT_EQ(dmf::keyringState(), KeyringState::ready);
        EXPECT_FALSE(keep("eva", "password", service(kUri)));
        EXPECT_EQ(keyring.items(), 0);
    }
}

TEST(Keyring, ThatIsNotThereCostsLittleTimeAndNoWords)
{
    testing::internal::CaptureStderr(); // libraries below would write their warnings into the host's
    SessionBus withoutService;
    const struct {
        std::string address;
        KeyringState state;
    } machines[] = {
        {"", KeyringState::noBus},
        {"autolaunch:", KeyringState::noBus},
        {"no address at all", KeyringState::noBus},
        {"unix:path=/nonexistent/bus", KeyringState::noBus},
        {withoutService.address(), KeyringState::noService},
    };
    for (const auto& [address, state] : machines) {
        SCOPED_TRACE(address);
        MachineOn machine(address);
        const auto begin = Clock::now();
        EXPECT_EQ(find(service(kUri)), nullptr);
        EXPECT_FALSE(keep("eva", "password", service(kUri)));
        EXPECT_EQ(dmf::keyringState(), state);
        EXPECT_LT(Clock::now() - begin, 4s);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Keyring, IsFoundInTheRuntimeFolderWhereTheEnvironmentNamesNoBus)
{
    KeyringFixture keyring;
    HostFixture machine;
    machine.setEnvironment("XDG_RUNTIME_DIR", keyring.bus.folder());
    EXPECT_TRUE(keep("eva", "password", service(kUri)));
    EXPECT_TRUE(find(service(kUri)));
}

TEST(Keyring, ThatDoesNotAnswerIsWaitedForWithinTheBound)
{
    SilentBus silent;
    KeyringFixture keyring;
    ASSERT_TRUE([&] {
        MachineOn machine(keyring.bus.address());
        return keep("eva", "password", service(kUri));
    }());
    for (const bool isStopped : {true, false}) {
        SCOPED_TRACE(isStopped ? "stopped keyring" : "silent bus");
        MachineOn machine(isStopped ? keyring.bus.address() : silent.address());
        keyring.program().signal(SIGSTOP);
        // At once, so that the test waits once.
        std::vector<std::thread> threads;
        const auto begin = Clock::now();
        threads.emplace_back([] { EXPECT_EQ(find(service(kUri)), nullptr); });
        threads.emplace_back([] { EXPECT_FALSE(keep("eva", "password", service("other"))); });
        threads.emplace_back([] { EXPECT_EQ(dmf::keyringState(), KeyringState::silent); });
        for (auto& thread : threads)
            thread.join();
        EXPECT_GE(Clock::now() - begin, 1900ms) << "given up too early";
        EXPECT_LT(Clock::now() - begin, 4s);
        EXPECT_TRUE(noKeyringThreadIsLeft());
        keyring.program().signal(SIGCONT);
    }
    MachineOn machine(keyring.bus.address());
    EXPECT_TRUE(find(service(kUri))) << "it answers again";
}

TEST(BusServices, AreMissingSilentOrThere)
{
    using dmf::Bus;
    using dmf::BusServiceState;
    KeyringFixture keyring;
    SilentBus silent;
    HostFixture machine;
    const auto state = [&](const std::string& address, std::string_view name) {
        machine.setEnvironment("DBUS_SYSTEM_BUS_ADDRESS", address);
        return dmf::busServiceState(Bus::system, name);
    };
    EXPECT_EQ(state("unix:path=/nonexistent/bus", "org.freedesktop.secrets"), BusServiceState::noBus);
    EXPECT_EQ(dmf::busServiceState(Bus::session, "org.freedesktop.secrets"), BusServiceState::noBus);
    EXPECT_EQ(state(keyring.bus.address(), "org.example.Nobody"), BusServiceState::missing);
    EXPECT_EQ(state(keyring.bus.address(), "no name"), BusServiceState::missing);
    EXPECT_EQ(state(keyring.bus.address(), "org.freedesktop.secrets"), BusServiceState::answers);
    EXPECT_EQ(state(silent.address(), "org.freedesktop.secrets"), BusServiceState::silent);
    keyring.program().signal(SIGSTOP);
    EXPECT_EQ(state(keyring.bus.address(), "org.freedesktop.secrets"), BusServiceState::silent);
}

} // namespace
