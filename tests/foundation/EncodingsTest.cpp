#include <dmf/DMDataExtension.h>
#include <dmf/DMDictionaryExtension.h>
#include <dmf/DMStringExtension.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

using dmf::Array;
using dmf::CharacterSet;
using dmf::Data;
using dmf::Date;
using dmf::Dictionary;

namespace {

std::string everyByte()
{
    std::string text;
    for (int byte = 0; byte < 256; ++byte)
        text += static_cast<char>(byte);
    return text;
}

std::optional<std::string> decodedBase64(std::string_view text)
{
    const auto data = com_ql_dmf_dataDecodedWithBase64(text);
    return data ? std::optional(std::string(data->text())) : std::nullopt;
}

std::optional<std::string> decodedHex(std::string_view text)
{
    const auto data = com_ql_dmf_dataFromHexadecimalRepresentation(text);
    return data ? std::optional(std::string(data->text())) : std::nullopt;
}

/// Puts the process into a time zone for the length of a test.
class TimeZone {
public:
    explicit TimeZone(const char* name)
    {
        if (const char* before = std::getenv("TZ"))
            before_ = before;
        set(name);
    }
    ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void set(const char* name)
    {
        name ? ::setenv("TZ", name, 1) : ::unsetenv("TZ");
        ::tzset();
    }
    std::optional<std::string> before_;
};

} // namespace

TEST(Encodings, HexadecimalGoesBackAndForth)
{
    EXPECT_EQ(com_ql_dmf_hexadecimalRepresentationString("a/b\xFF"), "612F62FF");
    EXPECT_EQ(com_ql_dmf_hexadecimalRepresentationString(Data()), "");
    EXPECT_EQ(com_ql_dmf_hexadecimalRepresentationString(Data::fromText({"\0\x0A", 2})), "000A");
    const std::string hex = com_ql_dmf_hexadecimalRepresentationString(everyByte());
    EXPECT_EQ(decodedHex(hex), everyByte());
    EXPECT_EQ(decodedHex(dmf::lowercased(hex)), everyByte());
}

TEST(Encodings, HexadecimalRefusesOtherCharactersButNotAnOddLastOne)
{
    EXPECT_EQ(decodedHex("0aFf"), "\x0A\xFF");
    EXPECT_EQ(decodedHex(""), "");
    for (const char* odd : {"0aF", "0ag", "0aé", "0a\xFF"})
        EXPECT_EQ(decodedHex(odd), "\x0A") << odd;
    for (const char* bad : {"0g", "g0", "0aéé", "é0", " 0a", "0a 0", "😀", "0a😀", "0x0a"})
        EXPECT_EQ(decodedHex(bad), std::nullopt) << bad;
    EXPECT_EQ(com_ql_dmf_stringFromHexadecimalRepresentation("C3A400"), std::string("ä\0", 3));
    EXPECT_EQ(com_ql_dmf_stringFromHexadecimalRepresentation("C3"), std::nullopt);
}

TEST(Encodings, Base64GivesPublishedVectors)
{
    const std::pair<const char*, const char*> table[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"},
                                                         {"\xFB\xFF\xBE", "+/++"}};
    for (const auto& [plain, encoded] : table) {
        EXPECT_EQ(com_ql_dmf_base64String(Data::fromText(plain)), encoded);
        EXPECT_EQ(com_ql_dmf_base64Data(Data::fromText(plain)).text(), encoded);
        EXPECT_EQ(decodedBase64(encoded), plain);
    }
}

TEST(Encodings, Base64SkipsWhiteSpaceAndRefusesEverythingElse)
{
    for (const char* good : {"TW Fu\n", "\t\v\f\r TWFu", "TW\u00A0Fu\u2028"})
        EXPECT_EQ(decodedBase64(good), "Man") << good;
    EXPECT_EQ(decodedBase64("TQ = = \n"), "M");
    EXPECT_EQ(decodedBase64(" \n"), "");
    for (const std::string& bad :
         {std::string("TQ="),       std::string("TR=="), std::string("TWF="),     std::string("TQ==x"),
          std::string("TQ==="),     std::string("T@=="), std::string("QQ"),       std::string("Q"),
          std::string("QUI"),       std::string("="),    std::string("Q==="),     std::string("===="),
          std::string("TWFu="),     std::string("TQ=x"), std::string("TWE=x"),    std::string("TWFu\0", 5),
          std::string("TQ==\0", 5), std::string("TW-_"), std::string("TWFu\xFF"), std::string("TWFü")})
        EXPECT_EQ(decodedBase64(bad), std::nullopt) << bad;
}

TEST(Encodings, Base64OfBytesOfAnyKindAndSizeGoesBackAndForth)
{
    std::mt19937 random(3);
    for (const std::size_t size : {1u, 2u, 3u, 255u, 4096u, 1u << 20}) {
        std::string text(size, '\0');
        for (char& c : text)
            c = static_cast<char>(random());
        const std::string encoded = com_ql_dmf_base64String(Data::fromText(text));
        EXPECT_EQ(encoded.size(), (size + 2) / 3 * 4);
        EXPECT_TRUE(decodedBase64(encoded) == text);
        EXPECT_EQ(decodedBase64(encoded.substr(0, encoded.size() - 1)), std::nullopt);
    }
}

TEST(Encodings, TrimsBothEnds)
{
    const auto blanks = CharacterSet::whitespace();
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("  a b  ", blanks), "a b");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("   ", blanks), "");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("", blanks), "");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("\u00A0\u3000ä\u00A0", blanks), "ä");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("\xFF a \xE2\x82", blanks), "\xFF a \xE2\x82");
    EXPECT_EQ(com_ql_dmf_trimCharactersInSet("»»x»y«", CharacterSet::ofCharacters("«»")), "x»y");
}

TEST(Encodings, UrlNotationLeavesNothingWithAMeaning)
{
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("a b/c?d"), "a%20b%2Fc%3Fd");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation(";/?:@&=+,"), "%3B%2F%3F%3A%40%26%3D%2B%2C");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("%#[]\"<>\\^`{|}\x7F\n"),
              "%25%23%5B%5D%22%3C%3E%5C%5E%60%7B%7C%7D%7F%0A");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("Az09-_.!~*'()$ä"), "Az09-_.!~*'()$%C3%A4");
    EXPECT_EQ(com_ql_dmf_stringByEncodingToURLNotation("a b\xFF"), "a b\xFF");
}

TEST(Encodings, AddressFormsAreToldApartLoosely)
{
    EXPECT_TRUE(com_ql_dmf_isIPv4Adress("printer.local"));
    EXPECT_FALSE(com_ql_dmf_isIPv4Adress("fe80::1"));
    EXPECT_TRUE(com_ql_dmf_isIPv6Adress("host:9100"));
    EXPECT_FALSE(com_ql_dmf_isIPv6Adress("10.0.0.5"));
    EXPECT_TRUE(com_ql_dmf_isIPv6LinkLocalAdress("fe80::1%en0"));
    EXPECT_TRUE(com_ql_dmf_isIPv6LinkLocalAdress("FE80::"));
    EXPECT_FALSE(com_ql_dmf_isIPv6LinkLocalAdress("fe80:0::1"));
    EXPECT_FALSE(com_ql_dmf_isIPv6LinkLocalAdress("fe80:"));
}

TEST(Encodings, KeysAndFileNamesMapBothWays)
{
    EXPECT_EQ(com_ql_dmf_treatKeyStringAsFileName("a/b"), "612F62");
    EXPECT_EQ(com_ql_dmf_treatKeyStringAsFileName("_"), "5F");
    for (const char* key : {"", "_", ".", "../x", "Ä 😀"})
        EXPECT_EQ(com_ql_dmf_treatFileNameStringAsKey(com_ql_dmf_treatKeyStringAsFileName(key)), key);
    EXPECT_EQ(com_ql_dmf_treatFileNameStringAsKey("name"), std::nullopt);
}

TEST(Encodings, ZeroBytesAreFoundAnywhere)
{
    EXPECT_TRUE(com_ql_dmf_hasNULLTermination(Data::fromText({"ab\0cd", 5})));
    EXPECT_TRUE(com_ql_dmf_hasNULLTermination(Data::fromText({"\0", 1})));
    EXPECT_FALSE(com_ql_dmf_hasNULLTermination(Data::fromText("abcd")));
    EXPECT_FALSE(com_ql_dmf_hasNULLTermination(Data()));
}

TEST(Encodings, DatesAreReadByTheirFormat)
{
    const TimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
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
        {"060 2028 +0000", "%j %Y %z", "2028-02-29 00:00:00 +0000"},
        {"366/2028 0 UTC", "%j/%Y %w %Z", "2028-12-31 00:00:00 +0000"},
        {"100% 1969-12-31 23:59:59 +0000", "100%% %Y-%m-%d %H:%M:%S %z", "1969-12-31 23:59:59 +0000"},
        {"1970-01-01 00:59:59", "%Y-%m-%d %H:%M:%S", "1969-12-31 23:59:59 +0000"},
        {"", "", "1999-12-31 23:00:00 +0000"},
    };
    for (const auto& [text, format, utc, milliseconds] : table) {
        const auto date = com_ql_dmf_dateUsingFormat(text, format);
        ASSERT_TRUE(date) << text;
        EXPECT_EQ(date->description(), utc) << text;
        EXPECT_NEAR(date->timeIntervalSince(*Date::fromString(utc)), milliseconds / 1000.0, 1e-6) << text;
    }
}

TEST(Encodings, TextsThatDoNotFitTheirFormatAreNoDates)
{
    const std::pair<const char*, const char*> table[] = {
        {"2026-11-22 ", "%Y-%m-%d"},
        {"2026-11", "%Y-%m-%d"},
        {"2026-02-29", "%Y-%m-%d"},
        {"2026-13-01", "%Y-%m-%d"},
        {"2026-00-01", "%Y-%m-%d"},
        {"-1", "%d"},
        {"24:00", "%H:%M"},
        {"23:60", "%H:%M"},
        {"23:59:60", "%H:%M:%S"},
        {"13 PM", "%I %p"},
        {"0 AM", "%I %p"},
        {"1 XM", "%I %p"},
        {"366 2026", "%j %Y"},
        {"0 2026", "%j %Y"},
        {"Smarch 1", "%B %d"},
        {"Sunda", "%A"},
        {"+1", "%z"},
        {"+2400", "%z"},
        {"0100", "%z"},
        {"XYZ", "%Z"},
        {"", "%Z"},
        {"1", "%Q"},
        {"1", "%"},
        {"2026 x", "%Y y"},
        {"tomorrow", "%Y-%m-%d"},
    };
    for (const auto& [text, format] : table)
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
    const std::pair<Dictionary, bool> table[] = {
        {Dictionary{}, true},
        {mine, true},
        {Dictionary{{"text", "t"}, {"number", 7.0}}, true},
        {Dictionary{{"text", "t"}, {"number", 8}}, false},
        {Dictionary{{"missing", "t"}}, false},
        {Dictionary{{"list", "two"}}, true},
        {Dictionary{{"list", "three"}}, false},
        {Dictionary{{"list", Array{"two", 1}}}, true},
        {Dictionary{{"list", Array{"two", 3}}}, false},
        {Dictionary{{"list", Array{}}}, true},
        {Dictionary{{"list", Dictionary{}}}, false},
        {Dictionary{{"inner", Dictionary{{"deep", Dictionary{{"b", true}}}}}}, true},
        {Dictionary{{"inner", Dictionary{{"deep", Dictionary{{"b", false}}}}}}, false},
        {Dictionary{{"inner", Dictionary{}}}, true},
        {Dictionary{{"inner", "x"}}, true}, // the entry of the same name inside
        {Dictionary{{"inner", "y"}}, false},
        {Dictionary{{"text", Array{"t"}}}, false},
        {Dictionary{{"text", Dictionary{{"text", "t"}}}}, false},
    };
    for (const auto& [theirs, expected] : table)
        EXPECT_EQ(com_ql_dmf_containsObjectsFromDictionary(mine, theirs), expected) << theirs.description();
    EXPECT_TRUE(com_ql_dmf_containsObjectsFromDictionary({}, {}));
}
