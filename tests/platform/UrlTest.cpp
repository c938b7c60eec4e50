#include <dmf/platform/Url.h>

#include <dmf/platform/Unicode.h>

#include "platform/text/StringScanner.h"
#include "platform/text/UrlParts.h"

#include <gtest/gtest.h>

#include <string>

using dmf::Url;
using namespace std::string_view_literals;

TEST(Url, TakesUrlsApart)
{
    const auto none = std::nullopt;
    const struct {
        const char *text, *scheme;
        std::optional<std::string> authority, host, port;
        const char* path;
        std::optional<std::string> query;
    } table[] = {
        {"USB://QL/Model%20100?serial=CN12%2034", "USB", "QL", "QL", none, "/Model 100", "serial=CN12%2034"},
        {"ipp://[fe80::1%25en0]:631/p?a?b#f?x", "ipp", "[fe80::1%25en0]:631", "fe80::1%en0", "631", "/p", "a?b"},
        {"socket://fe80::1", "socket", "fe80::1", "fe80::1", none, "", none},
        {"socket://[fe80::1", "socket", "[fe80::1", "[fe80::1", none, "", none},
        {"vastel://10.0.0.5:Model%209/1%3a00:11", "vastel", "10.0.0.5:Model%209", "10.0.0.5", "Model%209", "/1:00:11",
         none},
        {"x://user:secret@Host%2eName:?", "x", "user:secret@Host%2eName:", "Host.Name", "", "", ""},
        {"app://h/%FF", "app", "h", "h", none, "", none},
        {"app://%FF/p", "app", "%FF", none, none, "/p", none},
        {"x:///p", "x", "", none, none, "/p", none},
        {"mailto:someone", "mailto", none, none, none, "someone", none},
        {"x://a#b/?c", "x", "a", "a", none, "", none},
    };
    for (const auto& expected : table) {
        SCOPED_TRACE(expected.text);
        const auto url = Url::fromString(expected.text);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->absoluteString(), expected.text);
        EXPECT_EQ(url->scheme(), expected.scheme);
        EXPECT_EQ(url->authority(), expected.authority);
        EXPECT_EQ(url->host(), expected.host);
        EXPECT_EQ(url->portText(), expected.port);
        EXPECT_EQ(url->path(), expected.path);
        EXPECT_EQ(url->query(), expected.query);
    }
}

TEST(Url, RefusesWhatIsNoUrl)
{
    for (const std::string_view text :
         {""sv, "://x"sv, "1x://a"sv, "a_b://c"sv, "noscheme"sv, "/path"sv, " x://a"sv, "x://a b"sv, "x://a\n"sv,
          "x://a\0b"sv, "x://\x7F"sv, "x://ä"sv, "x://%"sv, "x://%2"sv, "x://%zz"sv, "x://%2g/"sv})
        EXPECT_FALSE(Url::fromString(text)) << text;
    for (const char forbidden : "<>\"\\^`{}|"sv)
        EXPECT_FALSE(Url::fromString(std::string("x://") + forbidden)) << forbidden;
}

TEST(Url, EscapesGoBackAndForth)
{
    std::string all;
    for (char32_t c = 0; c < 0x180; ++c)
        dmf::appendCharacter(all, c);
    const std::string escaped = dmf::internal::percentEscaped(all, ";/?:@&=+,");
    EXPECT_TRUE(Url::fromString("x:" + escaped));
    EXPECT_EQ(escaped.find_first_of(";/?:@&=+, #[]\""), std::string::npos);
    EXPECT_EQ(dmf::replacingPercentEscapes(escaped), all);

    EXPECT_EQ(dmf::replacingPercentEscapes("a%2fb%2Fc%00"), std::string("a/b/c\0", 6));
    EXPECT_EQ(dmf::replacingPercentEscapes("%2525 ä"), "%25 ä");
    for (const char* text : {"%", "%4", "%zz", "a%4", "%C3", "%C3%28", "\xFF", "%ED%A0%80"})
        EXPECT_EQ(dmf::replacingPercentEscapes(text), std::nullopt) << text;
}

TEST(StringScanner, SkipsBlanksBeforeEachPieceOnly)
{
    dmf::internal::StringScanner scanner(" \n usb :\u00A0// QL one /x");
    EXPECT_EQ(scanner.scanUpTo(":"), "usb ");
    EXPECT_FALSE(scanner.scan("//"));
    EXPECT_TRUE(scanner.scan(":"));
    EXPECT_TRUE(scanner.scan("//"));
    EXPECT_EQ(scanner.remaining(), " QL one /x");
    EXPECT_EQ(scanner.scanUpToAnyOf("?/"), "QL one ");
    EXPECT_EQ(scanner.scanUpTo("/"), std::nullopt);
    EXPECT_TRUE(scanner.scanAnyOf("/?"));
    EXPECT_EQ(scanner.scanUpTo("never"), "x");
    EXPECT_TRUE(scanner.atEnd());

    // Failures leave it where it was.
    dmf::internal::StringScanner second("  /rest \n");
    EXPECT_FALSE(second.scan("//") || second.scanUpTo("/"));
    EXPECT_EQ(second.remaining(), "  /rest \n");
    EXPECT_TRUE(second.scan("/rest") && second.atEnd());
}
