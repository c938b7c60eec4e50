#include <dmf/platform/Format.h>

#include <dmf/platform/Value.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>

using dmf::formatted;

TEST(Format, ShowsEveryKindOfArgumentAsText)
{
    const std::optional<std::string> none;
    EXPECT_EQ(formatted("%@|%@|%@|%@", "text", std::string("owned"), none, nullptr), "text|owned|(null)|(null)");
    EXPECT_EQ(formatted("%@ %@ %@ %@", -5, 7u, 2.5, true), "-5 7 2.5 1");
    EXPECT_EQ(formatted("%@", dmf::Dictionary{{"a", 1}}), R"({ "a" = 1 })");
    EXPECT_EQ(formatted("%@ %p", std::shared_ptr<int>(), static_cast<const void*>(nullptr)), "(null) 0x0");
    EXPECT_EQ(formatted("%s %s", std::string_view("with\0zero", 9), static_cast<const char*>(nullptr)),
              std::string("with\0zero (null)", 16));
}

TEST(Format, ArgumentsThatDoNotFitAndMissingOnesDoNoHarm)
{
    EXPECT_EQ(formatted("%d %@ %s", 1), "1 (null) (null)");
    EXPECT_EQ(formatted("%d %x %f %c %p", "a", 1.5, 3, "b", 4), "a 1.5 3 b 4");
    EXPECT_EQ(formatted("100% of %", 8), "10010f %"); // "% o" is octal
    EXPECT_EQ(formatted("%y %5"), "%y %5");
    EXPECT_EQ(formatted("%.3d", "name"), "name");
}

TEST(Format, CountsWidthsInCharacters)
{
    EXPECT_EQ(formatted("[%5@][%-5@]", "äöü", "äöü"), "[  äöü][äöü  ]");
    EXPECT_EQ(formatted("[%.2@][%*.*s]", "äöü", 4, 1, "xyz"), "[äö][   x]");
    EXPECT_EQ(formatted("[%*d][%-*d]", -4, 7, 3, 8), "[7   ][8  ]");
    EXPECT_LE(formatted("%999999999999d", 1).size(), 10'000u);
    EXPECT_LE(formatted("%*.*f", std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), 1.0).size(),
              10'000u);
}

TEST(Format, AlternateFormsNegativeNumbersAsBitsAndCharactersInUtf8)
{
    EXPECT_EQ(formatted("%x", -536870208), "e00002c0");
    EXPECT_EQ(formatted("%lx", std::numeric_limits<std::int64_t>::min()), "8000000000000000");
    EXPECT_EQ(formatted("%d", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(formatted("%#x %#X %#o %#x %#06x %#.5o %#o", 255, 255, 8, 0, 255, 1, 0),
              "0xff 0XFF 010 0 0x00ff 00001 0");
    EXPECT_EQ(formatted("%c%c%c%3c", 'a', 0xE9, 0x1F600, 'b'), "aé😀  b");
    EXPECT_EQ(formatted("%c%c", 0xD800, -1), "\uFFFD\uFFFD");
}

// The C library is the yardstick for everything that both know.
TEST(Format, NumbersLookAsPrintfWouldShowThem)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "C");
    std::mt19937 random(1);
    const auto pick = [&](std::string_view from) { return std::string(1, from[random() % from.size()]); };
    const double reals[] = {
        0.0, -0.0, 1.0, -1.5, 0.1, 123456.789, 1e300, -1e-300, 1e15, 99999.95, std::numeric_limits<double>::infinity()};
    for (int i = 0; i < 5000; ++i) {
        const bool isReal = random() % 2;
        std::string format = "%";
        for (auto flags = random() % 3; flags > 0; --flags)
            format += pick("-0+ ");
        if (random() % 2)
            format += std::to_string(1 + random() % 12);
        if (random() % 2)
            format += "." + std::to_string(random() % 9);
        char expected[512];
        if (isReal) {
            const double value = reals[random() % std::size(reals)];
            format += pick("feEgG");
            std::snprintf(expected, sizeof expected, format.c_str(), value);
            EXPECT_EQ(formatted(format, value), expected) << format << " of " << value;
        } else {
            // One bit at least is set: printf shows nothing at all for zero digits of zero.
            const int value = static_cast<int>(random()) >> (random() % 32) | 1;
            format += pick("diuxXo");
            std::snprintf(expected, sizeof expected, format.c_str(), value);
            EXPECT_EQ(formatted(format, value), expected) << format << " of " << value;
        }
    }
    std::setlocale(LC_ALL, before.c_str());
}
