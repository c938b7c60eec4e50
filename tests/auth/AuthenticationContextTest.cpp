#include <dmf/ADMAuthenticationContextImpl.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/ADMWEPAuthenticationInfo.h>
#include <dmf/ADMWPAAuthenticationInfo.h>

#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "auth/Service.h"
#include "auth/SilentBus.h"
#include "support/HostFixture.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kWEP = 1, kWPA = 2, kNamed = 3;

auto named(std::string_view username)
{
    return ADMAuthenticationInfo::authenticationInfoWithUsername(username, "password", 0);
}

auto phrase()
{
    return ADMAuthenticationInfo::authenticationInfoWithWPAPassPhrase("phrase");
}

TEST(AuthenticationContext, KeepsOneCredentialOfEachKind)
{
    ADMAuthenticationContextImpl context(service("fake://printer"));
    context.addAuthenticationInfo(nullptr);
    EXPECT_TRUE(context.allAuthenticationInfos().empty());

    const auto first = named("first"), second = named("second");
    const auto wpa = phrase();
    context.addAuthenticationInfo(first);
    context.addAuthenticationInfo(wpa);
    context.addAuthenticationInfo(second);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed), second);
    EXPECT_EQ(context.authenticationInfoWithType(kWPA), wpa);
    EXPECT_EQ(context.authenticationInfoWithType(kWEP), nullptr);
    EXPECT_EQ(context.allAuthenticationInfos().size(), 2U);

    context.removeAuthenticationInfoWithType(kWEP);
    context.removeAuthenticationInfoWithType(kNamed);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed), nullptr);
    EXPECT_EQ(context.authenticationInfoWithType(kWPA), wpa);
    context.removeAllAuthenticationInfos();
    EXPECT_TRUE(context.allAuthenticationInfos().empty());
}

TEST(AuthenticationContext, TakesOverAllOfAnotherInPlaceOfItsOwn)
{
    const auto from = std::make_shared<ADMAuthenticationContextImpl>(service("fake://from"));
    const auto to = std::make_shared<ADMAuthenticationContextImpl>(service("fake://to"));
    from->addAuthenticationInfo(named("from"));
    to->addAuthenticationInfo(phrase());

    to->setAuthenticationContext(nullptr);
    EXPECT_NE(to->authenticationInfoWithType(kWPA), nullptr);
    to->setAuthenticationContext(to);
    EXPECT_NE(to->authenticationInfoWithType(kWPA), nullptr);
    to->setAuthenticationContext(from);
    EXPECT_EQ(to->authenticationInfos(), from->authenticationInfos());

    to->removeAllAuthenticationInfos();
    EXPECT_EQ(from->allAuthenticationInfos().size(), 1U) << "the other keeps its own";
}

TEST(AuthenticationContext, LooksIntoTheKeyringForUserNamesOnlyAndOnlyWhenAsked)
{
    HostFixture host;
    SilentBus bus;
    host.setEnvironment("DBUS_SESSION_BUS_ADDRESS", bus.address());
    ADMAuthenticationContextImpl context(service("fake://printer"));

    EXPECT_EQ(context.authenticationInfoWithType(kWEP, true), nullptr);
    EXPECT_EQ(context.authenticationInfoWithType(kWPA, true), nullptr);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed), nullptr);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed, false), nullptr);
    const auto kept = named("kept");
    context.addAuthenticationInfo(kept);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed, true), kept);
    EXPECT_FALSE(bus.wasCalled(0));

    context.removeAllAuthenticationInfos();
    EXPECT_EQ(context.authenticationInfoWithType(kNamed, true), nullptr);
    EXPECT_TRUE(bus.wasCalled(0));
}

TEST(AuthenticationContext, StaysUsableWhileTheKeyringIsWaitedFor)
{
    HostFixture host;
    SilentBus bus;
    host.setEnvironment("DBUS_SESSION_BUS_ADDRESS", bus.address());
    ADMAuthenticationContextImpl context(service("fake://printer"));

    const auto begin = Clock::now();
    std::thread waiting([&] { context.restoreAuthenticationInfoWithType(kNamed); });
    ASSERT_TRUE(bus.wasCalled(20'000));
    const auto added = named("typed in meanwhile");
    context.addAuthenticationInfo(added);
    EXPECT_EQ(context.authenticationInfoWithType(kNamed, true), added);
    EXPECT_LT(Clock::now() - begin, 2s) << "the look-up was waited for";
    waiting.join();
    EXPECT_EQ(context.authenticationInfoWithType(kNamed), added) << "a look-up without a find changes nothing";
}

TEST(AuthenticationContext, IsUsedFromManyThreadsAtOnce)
{
    const auto one = std::make_shared<ADMAuthenticationContextImpl>(service("fake://one"));
    const auto other = std::make_shared<ADMAuthenticationContextImpl>(service("fake://other"));
    constexpr int rounds = 500;
    const auto work = [](const auto& own, const auto& others) {
        for (int i = 0; i < rounds; ++i) {
            own->addAuthenticationInfo(named("user"));
            own->addAuthenticationInfo(phrase());
            own->setAuthenticationContext(others);
            for (const auto& each : own->allAuthenticationInfos())
                EXPECT_GE(each->authenticationType(), kWPA);
            own->removeAuthenticationInfoWithType(kWPA);
            own->removeAllAuthenticationInfos();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] { work(one, other); });
        threads.emplace_back([&] { work(other, one); });
    }
    for (auto& thread : threads)
        thread.join();
    one->removeAllAuthenticationInfos();
    EXPECT_TRUE(one->allAuthenticationInfos().empty());
}

} // namespace
