#include <dmf/platform/PropertyList.h>

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/CpuTime.h"
#include "support/Pieces.h"
#include "support/Repeated.h"

using dmf::Array;
using dmf::Data;
using dmf::Date;
using dmf::Dictionary;
using dmf::Number;
using dmf::Value;

namespace {

std::optional<Value> parse(std::string_view text, std::string* reason = nullptr)
{
    return dmf::PropertyList::parse(Data::fromText(text).bytes(), reason);
}

std::optional<Value> parseBody(std::string_view body)
{
    return parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(body) +
                 "</plist>");
}

} // namespace

TEST(PropertyList, WhatIsWrittenReadsBackTheSame)
{
    const Value original = Dictionary{{"text", "a < b & \"c\"\r\n\ttail ]]> \xC3\xA4 "},
                                      {"", "empty key"},
                                      {"large", std::numeric_limits<std::uint64_t>::max()},
                                      {"small", std::numeric_limits<std::int64_t>::min()},
                                      {"tiny", std::numeric_limits<double>::denorm_min()},
                                      {"endless", -std::numeric_limits<double>::infinity()},
                                      {"no", false},
                                      {"early", Date(-1.25)},
                                      {"bytes", Data::fromText(std::string("\0\1\2\xFF", 4))},
                                      {"list", Array{1, Array{}, Dictionary{}, "x"}}};
    const auto written = dmf::PropertyList::serialize(original);
    ASSERT_TRUE(written);
    const auto read = dmf::PropertyList::parse(written->bytes());
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, original);
    const auto& dictionary = *read->asDictionary();
    EXPECT_EQ(dictionary["large"].asNumber()->kind(), Number::Kind::unsignedInteger);
    EXPECT_EQ(dictionary["small"].asNumber()->kind(), Number::Kind::signedInteger);
}

TEST(PropertyList, WhatPropertyListsCannotCarryIsNotWritten)
{
    Value deep;
    for (int i = 0; i < 600; ++i)
        deep = Array{deep};
    for (const auto& value :
         {Value(), Value::ofObject(std::make_shared<int>(1)), Value("\x01"), Value("\xFF"), Value("\xEF\xBF\xBF"),
          Value(Date(1e18)), Value(Date(std::nan(""))), Value(Array{Array{Value()}}), deep}) {
        std::string reason;
        EXPECT_FALSE(dmf::PropertyList::serialize(value, &reason));
        EXPECT_FALSE(reason.empty());
    }
}

TEST(PropertyList, TextIsWhateverStandsInTheElement)
{
    const std::pair<const char*, Value> cases[] = {
        {"<string>a<![CDATA[<&amp;>]]>b<!-- c -->d</string>", "a<&amp;>bd"},
        {"<string> <![CDATA[x]]> <?pi?> <!-- --> </string>", " x   "},
        {"<string>&#65;&#x1F600;&lt;&gt;&amp;&quot;&apos;&#13;</string>", "A\xF0\x9F\x98\x80<>&\"'\r"},
        {"<string>a\r\nb\rc</string>", "a\nb\nc"},
        {"<!-- before --><dict><!-- within -->\n<key>a<![CDATA[b]]></key> <?pi?><true/></dict><!-- after -->",
         Dictionary{{"ab", true}}},
        {"<dict><key>k</key><string>1</string><key>a</key><string/><key>k</key><string>2</string></dict>",
         Dictionary{{"a", ""}, {"k", "2"}}},
        {"<integer> +12\n</integer>", 12},
        {"<integer>-0x1f</integer>", -31},
        {"<integer>-9223372036854775808</integer>", std::numeric_limits<std::int64_t>::min()},
        {"<date>2040-02-29T12:00:01Z</date>", *Date::fromString("2040-02-29 12:00:01 +0000")},
        {"<data>\n\tTQ ==\n</data>", Data::fromText("M")},
    };
    for (const auto& [body, expected] : cases)
        EXPECT_EQ(parseBody(body), expected) << body;
    EXPECT_EQ(parse("\xEF\xBB\xBF<!DOCTYPE plist PUBLIC \"-//[x]//\" \"http://x\">\n<plist><true/></plist>\n"), true);
}

TEST(PropertyList, MalformedOnesAreRefusedWithAReason)
{
    for (const auto& body :
         pieces("|text|<true/>text|<true/><true/>|<unknown/>|<key>k</key>|<array>text</array>|<array></"
                "dict>|<dict>text</dict>"
                "|<dict><key>k</key></dict>|<dict><string>v</string></dict>|<dict><key>k</key><key>l</key></dict>"
                "|<string>a<b/></string>|<string>&unknown;</string>|<string>&#0;</string>|<string>&#xD800;</string>"
                "|<string>&#x110000;</string>|<integer/>|<integer>1.5</integer>|<integer>18446744073709551616</integer>"
                "|<integer>--1</integer>|<integer>-9223372036854775809</integer>|<real>1,5</real>|<real>1e999</real>"
                "|<data>T@==</data>|<data>TQ==TQ==</data>|<date>2040-02-30T12:00:01Z</date>|<date>2040-02-28T12:00:01</"
                "date>"))
        EXPECT_FALSE(parseBody(body)) << body;
    std::string reason;
    for (const auto& text : pieces("|bplist00|<plist>|<true/>|<plist><true/></plist>x|x<plist><true/></plist>"
                                   "|<plist><string>\xC3</string></plist>|<plist><string>\x01</string></plist>")) {
        reason.clear();
        EXPECT_FALSE(parse(text, &reason)) << text;
        EXPECT_FALSE(reason.empty()) << text;
    }
    EXPECT_FALSE(parse("<plist>\n<array>\n<string>a</string>\n<wrong/>\n</array></plist>", &reason));
    EXPECT_EQ(reason, "line 4: unknown element");
}

TEST(PropertyList, HostileOnesCostLittle)
{
    const CpuTime used;
    // The limit is exact, and what lies beyond it does not reach the stack.
    EXPECT_TRUE(parseBody(repeated("<array>", 512) + repeated("</array>", 512)));
    EXPECT_FALSE(parseBody(repeated("<array>", 513) + repeated("</array>", 513)));
    EXPECT_FALSE(parseBody(repeated("<array>", 500'000)));

    EXPECT_FALSE(parseBody(repeated("<true/>", 100'000'000 / 7)));
    EXPECT_FALSE(parseBody("<string>" + repeated("x", 100'000'000) + "</string>"));
    EXPECT_FALSE(
        parse(R"(<!DOCTYPE plist [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;">]><plist><string>&b;</string></plist>)"));
    EXPECT_FALSE(
        parse(R"(<!DOCTYPE plist [<!ENTITY f SYSTEM "file:///etc/passwd">]><plist><string>&f;</string></plist>)"));

    // A large dictionary whose keys come in the worst order for insertion.
    std::string body = "<dict>";
    for (int i = 99'999; i >= 0; --i)
        body += "<key>" + std::to_string(100'000 + i) + "</key><true/>";
    const auto large = parseBody(body + "</dict>");
    ASSERT_TRUE(large);
    EXPECT_EQ(large->asDictionary()->size(), 100'000u);
    EXPECT_LT(used.seconds(), 20);
}
