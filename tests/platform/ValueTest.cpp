#include <dmf/platform/Value.h>

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

using dmf::Array;
using dmf::Data;
using dmf::Date;
using dmf::Dictionary;
using dmf::Number;
using dmf::Value;

TEST(Value, NumbersCompareByQuantityAndConversionsStopAtTheLimits)
{
    EXPECT_EQ(Value(1), Value(1.0));
    EXPECT_NE(Value(-1), Value(std::numeric_limits<std::uint64_t>::max()));
    // 2^63 - 1 is no double: its nearest double is 2^63, another quantity.
    EXPECT_NE(Value(std::numeric_limits<std::int64_t>::max()), Value(9223372036854775808.0));
    EXPECT_NE(Value(1), Value(true));
    EXPECT_EQ(Value(1).hash(), Value(1.0).hash());
    ASSERT_EQ(Value(0.0), Value(-0.0));
    EXPECT_EQ(Value(0.0).hash(), Value(-0.0).hash());
    EXPECT_EQ(Value(dmf::Date(0.0)).hash(), Value(dmf::Date(-0.0)).hash());
    EXPECT_EQ(Value(dmf::Array{0.0, -0.0}).hash(), Value(dmf::Array{-0.0, 0}).hash());

    EXPECT_EQ(Number(1e300).int64Value(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Number(-5).uint32Value(), 0u);
    EXPECT_EQ(Number(std::nan("")).int32Value(), 0);
    EXPECT_EQ(Number(std::uint64_t{1} << 40).int32Value(), std::numeric_limits<std::int32_t>::max());
}

TEST(Value, ContainersShareUntilOneIsChanged)
{
    Dictionary inner{{"a", 1}};
    Dictionary outer{{"inner", inner}};
    Dictionary copy = outer;
    inner.set("a", 2);
    copy.set("other", true);
    EXPECT_EQ(*outer["inner"].asDictionary(), (Dictionary{{"a", 1}}));
    EXPECT_FALSE(outer.contains("other"));

    Array list{1, "two"};
    Array longer = list;
    longer.append(Data::fromText("three"));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_THROW((void)list.at(2), std::out_of_range);

    Data data = Data::fromText("abc");
    const Data before = data;
    data.append(data.bytes()); // its own
    EXPECT_EQ(data.text(), "abcabc");
    EXPECT_EQ(before.text(), "abc");
}

TEST(Value, DictionariesKeepSortedKeysAndNoNulls)
{
    Dictionary dictionary{{"b", 2}, {"a", 1}, {"nothing", nullptr}, {"b", 3}};
    EXPECT_EQ(dictionary.description(), R"({ "a" = 1; "b" = 3 })");
    dictionary.set("a", Value());
    EXPECT_EQ(dictionary["a"], 1);
    dictionary.merge(dictionary);
    dictionary.remove("a");
    EXPECT_TRUE(dictionary["a"].isNull());
    EXPECT_EQ(dictionary.size(), 1u);
}

TEST(Value, ObjectsComeBackAsTheTypeTheyWereStoredAs)
{
    struct Base {
        virtual ~Base() = default;
    };
    struct Derived : Base {};
    const auto object = std::make_shared<Derived>();
    const Value value = Value::ofObject(std::static_pointer_cast<Base>(object));
    EXPECT_EQ(value.objectAs<Base>(), object);
    EXPECT_EQ(value.objectAs<Derived>(), nullptr);
    EXPECT_TRUE(Value::ofObject(std::shared_ptr<Base>()).isNull());
}

TEST(Date, TextsRoundTripAndBadOnesAreRefused)
{
    EXPECT_EQ(Date(-1.5).description(), "1969-12-31 23:59:58 +0000");
    EXPECT_EQ(Date::fromString("2040-02-29 12:00:01 +0130")->description(), "2040-02-29 10:30:01 +0000");
    for (const char* text : {"", "2026", "2026-02-29 00:00:00 +0000", "2026-01-01 24:00:00 +0000",
                             "2026-01-01 00:00:00", "2026-01-01 00:00:00 +0000 ", "2026-01-01T00:00:00 +0000",
                             "2026-01-01 00:00:00 +00", "2026-01--1 00:00:00 +0000"})
        EXPECT_FALSE(Date::fromString(text)) << text;
}
