#include <dmf/ADMDeviceSettingsProxy.h>

#include <cmath>
#include <memory>

#include <gtest/gtest.h>

#include <dmf/ADMObserverHolder.h>
#include <dmf/DMDataStorePath.h>
#include <dmf/DMKeys.h>

#include "../examples/settings/PrinterSettings.h"
#include "support/HostFixture.h"

using dmf::Value;

namespace {

/// A model whose one setting has whatever limits the test gives it.
class Limited final : public ADMDeviceSettingsModel {
public:
    explicit Limited(DMSettingRange range)
    {
        defineRange("size", range);
        defineValues("size", {});
        defineValidator("size", [](Value&, dmf::Error*) { return false; });
    }
};

/// A model that defines a validation as an operation, and leaves the error's place empty.
class Silent final : public ADMDeviceSettingsModel {
public:
    Silent()
    {
        define("validateSize:error:", [](std::span<Value>) { return Value(false); });
    }
};

struct DeviceSettings : testing::Test {
    HostFixture host;
    std::shared_ptr<PrinterSettings> model = std::make_shared<PrinterSettings>();
    std::shared_ptr<ADMDeviceSettingsProxy> proxy = ADMDeviceSettingsProxy::initWithModel(model);

    /// What becomes of the value, or null when it is refused with the one error of settings.
    Value validated(std::string_view key, Value value)
    {
        dmf::Error error;
        if (proxy->validateValue(value, key, &error)) {
            EXPECT_FALSE(error);
            return value;
        }
        EXPECT_EQ(error, dmf::Error(std::string(kDMDeviceSettingsDomain), -1001));
        return {};
    }
};

} // namespace

TEST_F(DeviceSettings, StringsAreCleanedAndCutOrRefusedAndAddressesNeedTextOnBothSidesOfOneSign)
{
    EXPECT_EQ(validated("deviceName", "office-printer"), "officepr");
    EXPECT_EQ(validated("deviceName", "B\xC3\xBCro \xE4\xB8\xAD\xE6\x96\x87 ok"),
              "B\xC3\xBCro\xE4\xB8\xAD\xE6\x96\x87ok");
    EXPECT_TRUE(validated("deviceName", "ab").isNull());
    EXPECT_TRUE(validated("deviceName", "----").isNull());
    EXPECT_TRUE(validated("deviceName", 7).isNull());
    EXPECT_EQ(validated("contactEmail", "a@b"), "a@b");
    for (const char* address : {"ab", "@b", "a@", "a@b@c", "@", ""})
        EXPECT_TRUE(validated("contactEmail", address).isNull()) << address;
    Value longText = "any length at all";
    EXPECT_TRUE(Limited({0, 1}).validateStringValue(longText, "size", nullptr));
    EXPECT_EQ(longText, "any length at all");
}

TEST_F(DeviceSettings, NumbersAreMovedIntoTheirRange)
{
    const struct {
        DMSettingRange range;
        Value given, expected;
    } rows[] = {{{10, 5}, 3, 10},
                {{10, 5}, 20, 14},
                {{10, 5}, 12, 12},
                {{0, 0}, 99, 99},
                {{7, 0}, 7, 6},
                {{7, 0}, 3, 7},
                {{10, 5}, -1, 14}, // negative numbers count as huge ones
                {{0, 4}, -5, 3},
                {{1, 4294967295u}, -5, 4294967291u},
                {{0, 4}, 2.5, 2.5}, // what lies inside stays what it is
                {{2, 4}, 2.5, 2.5},
                {{0, 4}, 4.5, 3},
                {{10, 5}, 9.5, 10},
                {{0, 0}, 2.5, 2.5},
                {{10, 5}, 4294967308.5, 12}, // more than 32 bits
                {{0, 4}, std::nan(""), 0},
                {{10, 5}, 1e30, 14},
                {{4294967295u, 4294967295u}, 5, 4294967295u}};
    for (const auto& [range, given, expected] : rows) {
        Limited limited(range);
        Value value = given;
        EXPECT_TRUE(limited.validateNumberValue(value, "size", nullptr));
        EXPECT_EQ(value, expected) << range.location << "," << range.length << " " << given.description();
    }
    EXPECT_TRUE(validated("sleepMinutes", "12").isNull());
}

TEST_F(DeviceSettings, DatesThatAreOverBecomeTheStartOfTheNextMinute)
{
    const auto next = model->startOfNextMinute();
    EXPECT_EQ(validated("serviceDate", dmf::Date::now().addingTimeInterval(-3600)), next);
    EXPECT_EQ(std::fmod(next.secondsSince1970(), 60.0), 0.0);
    EXPECT_GT(next, dmf::Date::now());
    const auto later = next.addingTimeInterval(1);
    EXPECT_EQ(validated("serviceDate", later), later);
    EXPECT_TRUE(validated("serviceDate", 5).isNull());
}

TEST_F(DeviceSettings, ChoicesMustBeAmongTheAllowedOnes)
{
    EXPECT_EQ(validated("PaperSize", "A5"), "A5");
    EXPECT_TRUE(validated("PaperSize", "a5").isNull());
    Value anything = "anything";
    EXPECT_TRUE(model->validateEnumeratedValue(anything, "deviceName", nullptr)); // no choices for this key
    Limited limited({});
    EXPECT_TRUE(limited.validateEnumeratedValue(anything, "size", nullptr)); // an empty list of them
    dmf::Error error;
    EXPECT_FALSE(limited.validateValue(anything, "size", &error)); // refused without a word
    EXPECT_EQ(error, dmf::Error(std::string(kDMDeviceSettingsDomain), -1001));
    EXPECT_FALSE(limited.validateValue(anything, "size", nullptr)); // nobody wants to know why
    Silent silent;
    error = {};
    EXPECT_FALSE(silent.validateValue(anything, "size", &error)); // a validation of its own that reports nothing
    EXPECT_EQ(error, dmf::Error(std::string(kDMDeviceSettingsDomain), -1001));
    EXPECT_EQ(validated("serialNumber", 17), 17); // a key without a validator
    EXPECT_TRUE(validated("unknown", "x").isNull());
}

TEST_F(DeviceSettings, OnlyWritableKeysAreWrittenAndNoted)
{
    proxy->setValueForKey("lobby", "deviceName");
    proxy->setValueForKey("forged", "serialNumber");
    EXPECT_EQ(proxy->valueForKey("deviceName"), "lobby");
    EXPECT_EQ(proxy->valueForKey("serialNumber"), "CN1234");
    EXPECT_THROW((void)proxy->valueForKey("restart"), dmf::UndefinedKey);
    EXPECT_THROW(proxy->setValueForKey(1, "unknown"), dmf::UndefinedKey);
    EXPECT_EQ(proxy->modifiedValueKeys(), (std::set<std::string, std::less<>>{"deviceName"}));
}

TEST_F(DeviceSettings, OperationsAreForwardedWhereTheyConcernASetting)
{
    EXPECT_EQ(proxy->performWith("deviceName", {}), "printer");
    for (const char* name : {"reset", "set", "set:", "setX", "deviceName:"})
        EXPECT_EQ(proxy->keyFromSetSelector(name), std::nullopt) << name;
    EXPECT_EQ(proxy->keyFromSetSelector("setDeviceName:"), "deviceName");
    EXPECT_EQ(proxy->keyFromSetSelector("setURL:"), "URL");
    proxy->performWith("setPaperSize:", {"Letter"});
    proxy->performWith("setSerialNumber:", {"forged"});
    EXPECT_EQ(proxy->valueForKey("PaperSize"), "Letter");
    EXPECT_EQ(proxy->modifiedValueKeys(), (std::set<std::string, std::less<>>{"PaperSize"}));
    EXPECT_TRUE(proxy->performWith("restart", {}).isNull()); // not allowed: done on nothing
    EXPECT_THROW(proxy->performWith("selfDestruct", {}), dmf::UnrecognizedOperation);
    EXPECT_EQ(proxy->signatureOf("setValue:forKey:"), (dmf::DynamicObject::Signature{2}));
    EXPECT_EQ(proxy->performWith("isKeyReadOnly:", {"serialNumber"}), true); // its own, though no setting is named
    EXPECT_TRUE(proxy->performWith("startOfNextMinute", {}).isNull());       // the model's
    EXPECT_EQ(proxy->valueForKey("modifiedValueKeys"), Value(dmf::Array{"PaperSize"}));
    std::vector<Value> arguments{"a@", "contactEmail", {}};
    EXPECT_EQ(proxy->perform("validateValue:forKey:error:", arguments), false);
    EXPECT_NE(arguments[2].objectAs<dmf::Error>(), nullptr);
}

TEST_F(DeviceSettings, ProxiesAreEqualByTheirValues)
{
    const auto other = ADMDeviceSettingsProxy::initWithModel(std::make_shared<PrinterSettings>());
    EXPECT_TRUE(proxy->isEqual(*other));
    EXPECT_EQ(proxy->hash(), other->hash());
    other->setValueForKey("A5", "PaperSize");
    EXPECT_FALSE(proxy->isEqual(*other));
    EXPECT_TRUE(proxy->conformsToProtocol(model->modelProtocol()));
}

TEST_F(DeviceSettings, ObserversAreNotKeptAlive)
{
    const auto holder = ADMObserverHolder::holderWithObject(model, "restart");
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(holder->object(), model);
    EXPECT_EQ(ADMObserverHolder::initWithObject(model, "selfDestruct"), nullptr);
    proxy.reset();
    model.reset();
    EXPECT_EQ(holder->object(), nullptr);
}

TEST(DataStorePath, StepsAreWrittenAndReadBackAndMalformedOnesGiveNothing)
{
    using Keys = std::optional<std::vector<std::string>>;
    const struct {
        const char* path;
        Keys keys;
    } rows[] = {{"anything", {}},
                {" item[@key=\"a\"] / \n item[@key=\"b\"]", Keys({"a", "b"})},
                {"item[@key=\"a\"]/something else", Keys({"a"})},
                {"item[@key=\"a\"]item[@key=\"b\"]", {}},
                {"item[@key=\"\"]", {}},
                {"item[@key=\"a\"", {}},
                {"domain[@name=\"d\"] /item[@key=\"a\"]", {}},
                {"domain[@name=\"d\"item[@key=\"a\"]", {}},
                {"domain[@name=\"d\"]/item[@key=\"a\"]", Keys({"a"})}};
    for (const auto& [path, keys] : rows)
        EXPECT_EQ(com_ql_dmf_dataStoreKeyList(path), keys) << path;
    EXPECT_EQ(com_ql_dmf_dataStoreDomainName("domain[@name=\"\"]"), std::nullopt);

    auto written = com_ql_dmf_stringByConvertingToDataStoreDomainName("printer");
    for (const char* step : {"network", "host name"})
        written = com_ql_dmf_stringByAppendingDataStorePathComponent(written, step);
    EXPECT_EQ(com_ql_dmf_dataStoreDomainName(written), "printer");
    EXPECT_EQ(com_ql_dmf_dataStoreKeyList(written), Keys({"network", "host name"}));
}
