#include "platform/documents/Archive.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/Repeated.h"

using dmf::Array;
using dmf::Data;
using dmf::Date;
using dmf::Dictionary;
using dmf::Number;
using dmf::Value;
using dmf::internal::archived;
using dmf::internal::unarchived;

namespace {

Dictionary nested(int levels)
{
    Dictionary dictionary;
    for (int i = 1; i < levels; ++i)
        dictionary = Dictionary{{"d", dictionary}};
    return dictionary;
}

Dictionary sample()
{
    return {{"text", "a\xC3\xA4"},
            {"bytes as text", std::string("\xFF\0x", 3)},
            {std::string("\xFF\0key", 5), ""},
            {"true", true},
            {"signed", std::int64_t{-1}},
            {"unsigned", std::numeric_limits<std::uint64_t>::max()},
            {"small unsigned", 7u},
            {"real", -0.0},
            {"endless", std::numeric_limits<double>::infinity()},
            {"data", Data::fromText("\x01\x02")},
            {"date", Date(1e10 + 0.125)},
            {"array", Array{1, Value(), "x", Array{}, Dictionary{{"k", 2u}}}},
            {"", Dictionary{}}};
}

} // namespace

TEST(Archive, EveryKindReadsBackExactly)
{
    const Dictionary original = sample();
    const auto bytes = archived(original);
    ASSERT_TRUE(bytes);
    const auto read = unarchived(bytes->bytes());
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, original);
    // Equality of numbers goes by quantity, so the kinds are looked at apart.
    EXPECT_EQ((*read)["signed"].asNumber()->kind(), Number::Kind::signedInteger);
    EXPECT_EQ((*read)["small unsigned"].asNumber()->kind(), Number::Kind::unsignedInteger);
    EXPECT_TRUE(std::signbit((*read)["real"].asNumber()->doubleValue()));
    EXPECT_EQ(unarchived(archived({})->bytes()), Dictionary());
    EXPECT_EQ(unarchived(archived(nested(32))->bytes()), nested(32));
}

TEST(Archive, ReadsTheOtherByteOrder)
{
    // { "k": 0x0102030405060708 }, laid out by hand for both orders.
    const auto archive = [](char order, bool reversed) {
        std::vector<std::uint8_t> number{1, 2, 3, 4, 5, 6, 7, 8};
        if (!reversed)
            std::ranges::reverse(number);
        std::vector<std::uint8_t> bytes{'D', 'M', 'A', '1', static_cast<std::uint8_t>(order), 0, 0, 0};
        bytes.insert(bytes.end(), {'k', 0, 0, 0, 0, 0, 0, 0});
        bytes.insert(bytes.end(), number.begin(), number.end());
        bytes.insert(bytes.end(), {0, 'x', 1, 19});
        return bytes;
    };
    const Dictionary expected{{"k", std::int64_t{0x0102030405060708}}};
    EXPECT_EQ(unarchived(archive('l', false)), expected);
    EXPECT_EQ(unarchived(archive('B', true)), expected);
}

TEST(Archive, WhatCannotBeArchivedIsRefused)
{
    EXPECT_FALSE(archived({{"a", 1}, {"list", Array{1, Value::ofObject(std::make_shared<int>())}}}));
    EXPECT_FALSE(archived(nested(33)));
    EXPECT_FALSE(archived({{"large", repeated("x", 17 << 20)}}));
}

TEST(Archive, ForeignBytesAreRefusedOrReadButNeverTrusted)
{
    const auto whole = archived(sample());
    const std::vector<std::uint8_t> bytes(whole->bytes().begin(), whole->bytes().end());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const auto read = unarchived(std::span(bytes).first(length));
        // What is left after the head may be a shorter archive by chance; it is never the whole one.
        EXPECT_NE(read, sample()) << length;
    }
    std::mt19937 random(1);
    for (int round = 0; round < 20'000; ++round) {
        auto changed = bytes;
        for (int i = 0; i < 3; ++i)
            changed[random() % changed.size()] = static_cast<std::uint8_t>(random());
        if (const auto read = unarchived(changed)) {
            // Whatever is read is a proper dictionary again.
            const auto again = archived(*read);
            ASSERT_TRUE(again);
            ASSERT_TRUE(unarchived(again->bytes()));
        }
    }
    EXPECT_FALSE(unarchived({}));
}
