#include <dmf/ADMProtectionSpaceImp.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/ADMWEPAuthenticationInfo.h>
#include <dmf/ADMWPAAuthenticationInfo.h>
#include <dmf/platform/Error.h>

#include <gtest/gtest.h>

#include "auth/Service.h"

namespace {

using dmf::Array;
using dmf::Data;
using dmf::Dictionary;
using dmf::Value;

TEST(Credentials, EachKindTellsItsTypeAndWhatItWasGiven)
{
    const auto named = ADMAuthenticationInfo::authenticationInfoWithUsername("eva", "p\xC3\xA4ss", 7);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->authenticationType(), 3);
    EXPECT_EQ(named->username(), "eva");
    EXPECT_EQ(named->password(), "p\xC3\xA4ss");
    EXPECT_EQ(named->persistence(), 7);

    const auto phrase = ADMAuthenticationInfo::authenticationInfoWithWPAPassPhrase("open sesame");
    ASSERT_TRUE(phrase);
    EXPECT_EQ(phrase->authenticationType(), 2);
    EXPECT_EQ(phrase->passPhrase(), "open sesame");

    const Value keys = Array{"0123456789", "abcde"};
    const auto wep = ADMAuthenticationInfo::authenticationInfoWithWEPKeys(keys);
    ASSERT_TRUE(wep);
    EXPECT_EQ(wep->authenticationType(), 1);
    EXPECT_EQ(wep->WEPKeys(), keys);
}

TEST(Credentials, AreMadeOfEmptyTextsButNotOfMissingOnes)
{
    using Named = ADMUsernameAndPasswordAuthenticationInfo;
    EXPECT_TRUE(Named::initWithUsername("", "", 0));
    EXPECT_FALSE(Named::initWithUsername(std::nullopt, "secret", 0));
    EXPECT_FALSE(Named::initWithUsername("eva", std::nullopt, 0));
    EXPECT_TRUE(ADMWPAAuthenticationInfo::initWithPassPhrase(""));
    EXPECT_FALSE(ADMWPAAuthenticationInfo::initWithPassPhrase(std::nullopt));
    EXPECT_TRUE(ADMWEPAuthenticationInfo::initWithWEPKeys(Array()));
    EXPECT_FALSE(ADMWEPAuthenticationInfo::initWithWEPKeys(Value()));
}

TEST(Credentials, WipingTheOnesTakesNothingFromThoseWhoSharedIt)
{
    const Value given = Array{"a key that is too long to be kept in place", "short",
                              Dictionary{{"nested", Data::fromText("bytes of a key")}}};
    const Value expected = Array{"a key that is too long to be kept in place", "short",
                                 Dictionary{{"nested", Data::fromText("bytes of a key")}}};
    auto info = ADMWEPAuthenticationInfo::initWithWEPKeys(given);
    const Value handedOut = info->WEPKeys();
    info.reset();
    EXPECT_EQ(given, expected);
    EXPECT_EQ(handedOut, expected);
}

TEST(Credentials, WirelessKindsAreNeverKeptInTheKeyring)
{
    const auto printer = service("usb://QL/Model", "Model");
    EXPECT_FALSE(ADMWPAAuthenticationInfo::initWithPassPhrase("phrase")->storeInKeychainForServiceInfo(printer));
    EXPECT_FALSE(ADMWEPAuthenticationInfo::initWithWEPKeys("key")->storeInKeychainForServiceInfo(printer));
    EXPECT_FALSE(ADMWPAAuthenticationInfo::initFromKeychainForServiceInfo(printer));
    EXPECT_FALSE(ADMWEPAuthenticationInfo::initFromKeychainForServiceInfo(printer));
}

TEST(Credentials, TheBaseLeavesItsOperationsToTheKinds)
{
    struct Unfinished : ADMAuthenticationInfo {};
    const Unfinished unfinished;
    EXPECT_THROW((void)unfinished.authenticationType(), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)unfinished.storeInKeychainForServiceInfo(nullptr), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)ADMAuthenticationInfo::initFromKeychainForServiceInfo(nullptr), dmf::UnrecognizedOperation);
}

TEST(ProtectionSpace, KeepsItsTypeAndItsRealm)
{
    ADMProtectionSpaceImp space(2);
    EXPECT_EQ(space.authenticationType(), 2);
    EXPECT_FALSE(space.realm());
    space.setRealm("Office");
    EXPECT_EQ(space.realm(), "Office");
    space.setRealm(std::nullopt);
    EXPECT_FALSE(space.realm());
}

} // namespace
