#include <dmf/DMDataExtension.h>
#include <dmf/DMDictionaryExtension.h>
#include <dmf/DMStringExtension.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using dmf::Array;
using dmf::CharacterSet;
using dmf::Data;
using dmf::Date;
using dmf::Dictionary;
using namespace std::string_view_literals;

namespace {

std::string everyByte()
{
    std::string text;
    for (int byte = 0; byte < 256; ++byte)
        text += static_cast<char>(byte);
    return text;
}

std::optional<std::string> textOf(const std::optional<Data>& data)
{
    return data ? std::optional(std::string(data->text())) : std::nullopt;
}

std::optional<std::string> decodedBase64(std::string_view text)
{
    return textOf(com_ql_dmf_dataDecodedWithBase64(text));
}

std::optional<std::string> decodedHex(std::string_view text)
{
    return textOf(com_ql_dmf_dataFromHexadecimalRepresentation(text));
}

} // namespace

TEST(Encodings, HexadecimalGoesBackAndForthAndRefusesOtherCharactersButNotAnOddLastOne)
{
    EXPECT_EQ(com_ql_dmf_hexadecimalRepresentationString("a/b\xFF"), "612F62FF");
    const std::string hex = com_ql_dmf_hexadecimalRepresentationString(everyByte());
    EXPECT_EQ(decodedHex(hex), everyByte());
    EXPECT_EQ(decodedHex(dmf::lowercased(hex)), everyByte());
    for (const char* odd : {"0aF", "0ag", "0aé", "0a\xFF"})
        EXPECT_EQ(decodedHex(odd), "\x0A") << odd;
    for (const char* bad : {"0g", "g0", "0aéé", "é0", " 0a", "0a 0", "😀", "0a😀", "0x0a"})
        EXPECT_EQ(decodedHex(bad), std::nullopt) << bad;
    EXPECT_EQ(com_ql_dmf_stringFromHexadecimalRepresentation("C3A400"), std::string("ä\0", 3));
    EXPECT_EQ(com_ql_dmf_stringFromHexadecimalRepresentation("C3"), std::nullopt);
}

TEST(Encodings, Base64GivesPublishedVectorsSkipsWhiteSpaceAndRefusesEverythingElse)
{
    const std::pair<const char*, const char*> table[] = {
        {"", ""}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF\xBE", "+/++"}};
    for (const auto& [plain, encoded] : table) {
        EXPECT_EQ(com_ql_dmf_base64String(Data::fromText(plain)), encoded);
        EXPECT_EQ(decodedBase64(encoded), plain);
    }
    EXPECT_EQ(decodedBase64(com_ql_dmf_base64String(Data::fromText(everyByte()))), everyByte());
    for (const char* good : {"TW Fu\n", "\t\v\f\r TWFu", "TW\u00A0Fu\u2028"})
        EXPECT_EQ(decodedBase64(good), "Man") << good;
    EXPECT_EQ(decodedBase64("TQ = = \n"), "M");
    EXPECT_EQ(decodedBase64(" \n"), "");
    for (const std::string_view bad : {"TQ="sv, "TR=="sv, "TWF="sv, "TQ==x"sv, "TQ==="sv, "T@=="sv, "Q"sv, "QUI"sv,
                                       "="sv, "===="sv, "TWFu="sv, "TQ=x"sv, "TWFu\0"sv, "TW-_"sv, "TWFu\xFF"sv})
        EXPECT_EQ(decodedBase64(bad), std::nullopt) << bad;
}

TEST(Encodings, TrimsBothEnds)
{
    const auto blanks = CharacterSet::whitespace();
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("   ", blanks), "");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("\u00A0\u3000ä b\u00A0", blanks), "ä b");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("\xFF a \xE2\x82", blanks), "\xFF a \xE2\x82");
}

TEST(Encodings, UrlNotationLeavesNothingWithAMeaning)
{
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation(" ;/?:@&=+,%#[]\"<>\\^`{|}\x7F\n"),
              "%20%3B%2F%3F%3A%40%26%3D%2B%2C%25%23%5B%5D%22%3C%3E%5C%5E%60%7B%7C%7D%7F%0A");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("Az09-_.!~*'()$ä"), "Az09-_.!~*'()$%C3%A4");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("a b\xFF"), "a b\xFF");
}

TEST(Encodings, KeysAndFileNamesMapBothWaysAndAddressFormsAreToldApartLoosely)
{
    EXPECT_TRUE(com_ql_dmf_isIPv4Adress("printer.local"));
    EXPECT_TRUE(com_ql_dmf_isIPv6Adress("host:9100"));
    EXPECT_TRUE(com_ql_dmf_isIPv6LinkLocalAdress("FE80::"));
    EXPECT_FALSE(com_ql_dmf_isIPv6LinkLocalAdress("fe80:0::1"));
    EXPECT_FALSE(com_ql_dmf_isIPv6LinkLocalAdress("fe80:"));
    EXPECT_EQ(com_ql_dmf_treatKeyStringAsFileName("_"), "5F");
    for (const char* key : {"", "_", ".", "../x", "Ä 😀"})
        EXPECT_EQ(com_ql_dmf_treatFileNameStringAsKey(com_ql_dmf_treatKeyStringAsFileName(key)), key);
    EXPECT_EQ(com_ql_dmf_treatFileNameStringAsKey("name"), std::nullopt);
}

TEST(Encodings, DatesAreReadByTheirFormat)
{
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    struct Row {
        const char *text, *format, *utc;
        int milliseconds = 0;
    };
    const Row table[] = {
        {"20261122T20:15:07.042", "%Y%m%dT%H:%M:%S.%F", "2026-11-22 19:15:07 +0000", 42},
        {"2026-07-01 12:00", "%Y-%m-%d %H:%M", "2026-07-01 10:00:00 +0000"},
        {"Sun,  22 Nov 2026 20:15:07 -0330", "%a, %d %b %Y %H:%M:%S %z", "2026-11-22 23:45:07 +0000"},
        {"SUNDAY november 1 26", "%A %B %e %y", "2026-10-31 23:00:00 +0000"},
        {"12:05 am PST 3/4/69", "%I:%M %p %Z %m/%d/%y", "1969-03-04 08:05:00 +0000"},
        {"12 PM GMT", "%I %p %Z", "2000-01-01 12:00:00 +0000"},
        {"366/2028 0 UTC", "%j/%Y %w %Z", "2028-12-31 00:00:00 +0000"},
        {"100% 1969-12-31 23:59:59 +0000", "100%% %Y-%m-%d %H:%M:%S %z", "1969-12-31 23:59:59 +0000"},
        {"", "", "1999-12-31 23:00:00 +0000"},
    };
    for (const auto& [text, format, utc, milliseconds] : table) {
        const auto date = com_ql_dmf_dateUsingFormat(text, format);
        ASSERT_TRUE(date) << text;
        EXPECT_EQ(date->description(), utc) << text;
        EXPECT_NEAR(date->timeIntervalSince(*Date::fromString(utc)), milliseconds / 1000.0, 1e-6) << text;
    }
    ::unsetenv("TZ");
}

TEST(Encodings, TextsThatDoNotFitTheirFormatAreNoDates)
{
    const std::pair<const char*, std::vector<const char*>> table[] = {
        {"%Y-%m-%d", {"2026-11-22 ", "2026-11", "2026-02-29", "2026-13-01", "2026-00-01", "tomorrow"}},
        {"%H:%M:%S", {"24:00:00", "23:60:00", "23:59:60", "-1:00:00"}},
        {"%I %p", {"13 PM", "0 AM", "1 XM"}},
        {"%j %Y", {"366 2026", "0 2026"}},
        {"%B %d", {"Smarch 1"}},
        {"%z", {"+1", "+2400", "0100"}},
        {"%Z", {"XYZ", ""}},
        {"%Q", {"1"}},
        {"%", {"1"}},
        {"%Y y", {"2026 x"}},
    };
    for (const auto& [format, texts] : table)
        for (const char* text : texts)
            EXPECT_EQ(com_ql_dmf_dateUsingFormat(text, format), std::nullopt) << text << " by " << format;
    const std::string megabyte(1 << 20, '1');
    EXPECT_EQ(com_ql_dmf_dateUsingFormat(megabyte, "%Y%m%d"), std::nullopt);
    EXPECT_EQ(com_ql_dmf_dateUsingFormat("2026", megabyte), std::nullopt);
}

TEST(Encodings, DictionariesHoldWhatOthersHold)
{
    const Dictionary mine{{"list", Array{1, "two", Array{3}}},
                          {"inner", Dictionary{{"a", 1}, {"inner", "x"}, {"deep", Dictionary{{"b", true}}}}},
                          {"text", "t"},
                          {"number", 7}};
    const Dictionary held[] = {{},
                               mine,
                               {{"text", "t"}, {"number", 7.0}},
                               {{"list", "two"}},
                               {{"list", Array{"two", 1}}},
                               {{"list", Array{}}},
                               {{"inner", Dictionary{{"deep", Dictionary{{"b", true}}}}}},
                               {{"inner", "x"}}}; // the entry of the same name inside
    for (const auto& theirs : held)
        EXPECT_TRUE(com_ql_dmf_containsObjectsFromDictionary(mine, theirs)) << theirs.description();
    const Dictionary others[] = {{{"text", "t"}, {"number", 8}},
                                 {{"missing", "t"}},
                                 {{"list", Array{"two", 3}}},
                                 {{"list", Dictionary{}}},
                                 {{"inner", Dictionary{{"deep", Dictionary{{"b", false}}}}}},
                                 {{"inner", "y"}},
                                 {{"text", Array{"t"}}},
                                 {{"text", Dictionary{{"text", "t"}}}}};
    for (const auto& theirs : others)
        EXPECT_FALSE(com_ql_dmf_containsObjectsFromDictionary(mine, theirs)) << theirs.description();
}
