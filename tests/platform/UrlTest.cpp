#include <dmf/platform/Url.h>

#include <dmf/platform/Unicode.h>

#include "platform/StringScanner.h"
#include "platform/UrlParts.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using dmf::Url;

namespace {

struct Expected {
    const char* text;
    const char* scheme;
    std::optional<std::string> authority, host, port;
    const char* path;
    std::optional<std::string> query;
};

} // namespace

TEST(Url, TakesUrlsApart)
{
    const std::nullopt_t none = std::nullopt;
    const Expected table[] = {
        {"socket://10.0.0.5:9100", "socket", "10.0.0.5:9100", "10.0.0.5", "9100", "", none},
        {"USB://QL/Model%20100?serial=CN12%2034", "USB", "QL", "QL", none, "/Model 100", "serial=CN12%2034"},
        {"ipp://[fe80::1%25en0]:631/p?a?b#f?x", "ipp", "[fe80::1%25en0]:631", "fe80::1%en0", "631", "/p", "a?b"},
        {"socket://fe80::1", "socket", "fe80::1", "fe80::1", none, "", none},
        {"socket://[fe80::1", "socket", "[fe80::1", "[fe80::1", none, "", none},
        {"vastel://10.0.0.5:Model%209/1%3a00:11", "vastel", "10.0.0.5:Model%209", "10.0.0.5", "Model%209", "/1:00:11",
         none},
        {"x://user:secret@Host%2eName:?", "x", "user:secret@Host%2eName:", "Host.Name", "", "", ""},
        {"app://QLDMF/v=1&k=%C3%A4", "app", "QLDMF", "QLDMF", none, "/v=1&k=ä", none},
        {"app://h/%FF", "app", "h", "h", none, "", none},
        {"app://%FF/p", "app", "%FF", none, none, "/p", none},
        {"x:///p", "x", "", none, none, "/p", none},
        {"mailto:someone", "mailto", none, none, none, "someone", none},
        {"x:", "x", none, none, none, "", none},
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
    for (const std::string& text :
         {std::string(),           std::string("://x"),        std::string("1x://a"),   std::string("a_b://c"),
          std::string("noscheme"), std::string("/path"),       std::string("x://a b"),  std::string("x://a\tb"),
          std::string("x://a\n"),  std::string("x://a\0b", 7), std::string("x://\x7F"), std::string("x://ä"),
          std::string("x://\xFF"), std::string("x://%"),       std::string("x://%2"),   std::string("x://%zz"),
          std::string("x://%2g/"), std::string("x://a<b"),     std::string("x://a\"b"), std::string("x://a\\b"),
          std::string("x://a^b"),  std::string("x://a`b"),     std::string("x://{a}"),  std::string("x://a|b"),
          " x://a" + std::string()})
        EXPECT_FALSE(Url::fromString(text)) << text;
}

TEST(Url, SurvivesBytesOfAnyKindAndSize)
{
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 2 ? "x://" : "";
        for (auto length = random() % 24; length > 0; --length)
            text += random() % 3 ? "/?#[]@:%2fA.="[random() % 13] : static_cast<char>(random());
        const auto url = Url::fromString(text);
        if (!url)
            continue;
        // What was accepted is there to be read, and lies inside the text.
        EXPECT_EQ(text.find(url->scheme()), 0u);
        (void)url->host(), (void)url->path(), (void)url->portText(), (void)url->query();
    }
    const std::string megabyte(1 << 20, 'a');
    EXPECT_EQ(Url::fromString("x://" + megabyte + "/p")->host(), megabyte);
    EXPECT_FALSE(Url::fromString(megabyte));
    EXPECT_FALSE(Url::fromString("x://" + megabyte + "%"));
}

TEST(Url, CopiesStandOnTheirOwn)
{
    auto url = Url::fromString("x://host:1/p");
    const Url copy = *url;
    url = Url::fromString("longer-scheme://another.host/other/path?query");
    EXPECT_EQ(copy.scheme(), "x");
    EXPECT_EQ(copy.host(), "host");
    EXPECT_EQ(*url, *Url::fromString(url->absoluteString()));
    EXPECT_FALSE(*url == copy);
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
    EXPECT_EQ(dmf::replacingPercentEscapes("%2525"), "%25");
    EXPECT_EQ(dmf::replacingPercentEscapes("plain ä"), "plain ä");
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
    EXPECT_FALSE(scanner.scanAnyOf("/?"));
    EXPECT_FALSE(scanner.atEnd());
    EXPECT_EQ(scanner.scanUpTo("never"), "x");
    EXPECT_TRUE(scanner.atEnd());
    EXPECT_EQ(scanner.scanUpTo("never"), std::nullopt);
    EXPECT_EQ(scanner.remaining(), "");
}

TEST(StringScanner, FailuresLeaveItWhereItWas)
{
    dmf::internal::StringScanner scanner("  /rest \n");
    EXPECT_FALSE(scanner.scan("//"));
    EXPECT_FALSE(scanner.scanUpTo("/"));
    EXPECT_EQ(scanner.remaining(), "  /rest \n");
    EXPECT_TRUE(scanner.scan("/rest"));
    EXPECT_EQ(scanner.remaining(), " \n");
    EXPECT_TRUE(scanner.atEnd());
}
