// All XML parsers that ship with the library, held to one table: callers may not notice which one they were given.

#include <dmf/ADMXMLParserFactory.h>

#include <string>

#include <gtest/gtest.h>

#include "support/CpuTime.h"
#include "support/HostFixture.h"
#include "support/Pieces.h"
#include "support/Repeated.h"

namespace {

class Parsers : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        parser_ = ADMXMLParserFactory::defaultFactory().parserNamed(GetParam());
        ASSERT_NE(parser_, nullptr);
    }

    std::string parsed(std::string_view text)
    {
        reason_.clear();
        const auto root = parser_->parseData(dmf::Data::fromText(text), &reason_);
        EXPECT_NE(root == nullptr, reason_.empty()) << text.substr(0, 80);
        return root ? shown(*root) : "refused";
    }

    std::string reason_;

private:
    /// Shows where texts begin and end, which serialised XML does not.
    static std::string shown(const ADMXMLElementImp& element)
    {
        std::string text = "<" + element.name().value_or("?");
        for (const auto& [name, value] : element.attributes())
            text += " " + name + "=\"" + *value.asString() + "\"";
        text += ">";
        for (const auto& child : element.children()) {
            const auto inner = std::dynamic_pointer_cast<ADMXMLElementImp>(child);
            text += inner ? shown(*inner) : "[" + *child->content() + "]";
        }
        return text + "</>";
    }

    std::shared_ptr<ADMXMLParser> parser_;
};

} // namespace

TEST_P(Parsers, GiveTheSameTreeForTheSameDocument)
{
    const std::pair<std::string, const char*> cases[] = {
        {"<a/>", "<a></>"},
        {"\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE a>\n<!-- c --><?pi?><a>t</a>\n<!-- c -->",
         "<a>[t]</>"},
        {"<!DOCTYPE a SYSTEM \"http://nowhere.invalid/x.dtd\"><a/>", "<a></>"},
        {"<a>\n\t<b> x </b>\r\n\t<c/> <d>  </d>\n</a>", "<a><b>[ x ]</><c></><d></></>"},
        {"<a>one <b/> two</a>", "<a>[one ]<b></>[ two]</>"},
        {"<a>x<![CDATA[<&>]]>y<!-- c -->z<?pi?>&amp;&lt;&#65;&#x1F600;</a>", "<a>[x<&>yz&<A\xF0\x9F\x98\x80]</>"},
        {"<a>x<!-- c --> <!-- c -->y</a>", "<a>[x y]</>"},
        {"<a>l1\r\nl2\rl3&#13;</a>", "<a>[l1\nl2\nl3\r]</>"},
        {"<a b=' x\n\ty ' c='&quot;&#10;&lt;' d=\"'\" e=''/>", "<a b=\" x  y \" c=\"\"\n<\" d=\"'\" e=\"\"></>"},
        {"<p:a xmlns:p='u' xmlns='d' p:k='1' k='2'><b xmlns=''/><q:c xmlns:q='v' xml:lang='de'/></p:a>",
         "<p:a k=\"2\" p:k=\"1\" xmlns=\"d\" xmlns:p=\"u\"><b xmlns=\"\"></>"
         "<q:c xml:lang=\"de\" xmlns:q=\"v\"></></>"},
        {"<a b='x &amp; y' c='&#38;lt;' d='&lt;&gt;&quot;&apos;' e='&#x26;amp;&#9;&#10;z' f='&amp;#38;'/>",
         "<a b=\"x & y\" c=\"&lt;\" d=\"<>\"'\" e=\"&amp;\t\nz\" f=\"&#38;\"></>"},
        {"<a c='3' b='2' a='&#x1F600;'><p:b xmlns:p='urn:x?a=1&amp;b=2#f' p:c='1' c='2'/></a>",
         "<a a=\"\xF0\x9F\x98\x80\" b=\"2\" c=\"3\"><p:b c=\"2\" p:c=\"1\" xmlns:p=\"urn:x?a=1&b=2#f\"></></>"},
        {"<?xml version = \"1.0\" encoding='utf-8' standalone='no' ?><?p?><a><?p  q='<'?>x<?p-1 ?\?></a><?p?>",
         "<a>[x]</>"},
        {"<!DOCTYPE  a PUBLIC '-//X//Y' \"http://nowhere.invalid/\" ><a/>", "<a></>"},
        {"<\xC3\xA4 \xC3\xB6='\xC3\xBC'>\xE2\x82\xAC</\xC3\xA4>", "<\xC3\xA4 \xC3\xB6=\"\xC3\xBC\">[\xE2\x82\xAC]</>"},
        {"<a><b><b><b>x</b></b></b><b/></a>", "<a><b><b><b>[x]</></></><b></></>"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(parsed(text), expected) << text;
    const auto deepest = repeated("<e>", 512) + repeated("</e>", 512);
    EXPECT_EQ(parsed(deepest), repeated("<e>", 512) + repeated("</>", 512));
}

TEST_P(Parsers, RefuseWhatIsNotWellFormed)
{
    for (const auto& text :
         pieces("| |text|<a>|<a></b>|<a/><b/>|<a/>x|<a b='1' b='2'/>|<a b/>|<a b='<'/>|<a>&unknown;</a>"
                "|<a b='&unknown;'/>|<a>&#0;</a>|<a>]]></a>|<a><!-- a -- b --></a>|<p:a/>|<a p:b='1'/>|<a xmlns:p=''/>"
                "|<a>\x01</a>|<a>\xFF</a>|<a>\xEF\xBF\xBF</a>| <?xml version='1.0'?><a/>|<a><![CDATA[</a>"))
        EXPECT_EQ(parsed(text), "refused") << text;
    // What stands beside elements and texts.
    for (const auto& text : pieces(
             "<?xml?><a/>|<?xml ?><a/>|<?xml encoding='UTF-8'?><a/>|<?xml version='2.0'?><a/>|<?xml version=1.0?><a/>"
             "|<?xml version='1.0' encoding='a b'?><a/>|<?xml version='1.0' standalone='maybe'?><a/>"
             "|<?xml version='1.0' x='1'?><a/>|<?xml version='1.0' standalone='yes' encoding='UTF-8'?><a/>"
             "|<?xml version='1.0'encoding='UTF-8'?><a/>|<?xml version='1.0' version='1.0'?><a/>"
             "|<?\?><a/>|<? p?><a/>|<?1?><a/>|<?p:q?><a/>|<?XML x?><a/>|<a><?xml version='1.0'?></a>|<a><?Xml?></a>"
             "|<a/><?\?>|<a><?p </a>|<!DOCTYPE><a/>|<!DOCTYPEa><a/>|<!DOCTYPE 1><a/>|<!DOCTYPE a b><a/>"
             "|<!DOCTYPE a SYSTEM><a/>|<!DOCTYPE a SYSTEM 'x' 'y'><a/>|<!DOCTYPE a PUBLIC 'x'><a/>"
             "|<!DOCTYPE a PUBLIC '{' 'x'><a/>|<!DOCTYPE a><!DOCTYPE a><a/>|<a><!DOCTYPE a></a>"
             "|<a xmlns='a b'/>|<a xmlns:p='%zz'/>|<a xmlns:p='a#b#c'/>|<a xmlns:p=':x'/>|<a xmlns:p='\xC3\xA4'/>"
             "|<a xmlns:xmlns='u'/>|<a xmlns:xml='u'/>|<a xmlns:p='http://www.w3.org/XML/1998/namespace'/>"
             "|<a xmlns='http://www.w3.org/2000/xmlns/'/>|<xmlns:a/>|<a xmlns:p='u' xmlns:q='u' p:b='1' q:b='2'/>"))
        EXPECT_EQ(parsed(text), "refused") << text;
    EXPECT_EQ(parsed(std::string_view("<a>\0</a>", 8)), "refused");
    const std::string whole = "<?xml version='1.0'?><a b='1'><c>t&amp;</c><![CDATA[x]]><!-- d --></a>";
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(parsed(whole.substr(0, length)), "refused") << length;
    EXPECT_EQ(parsed("<a>\n<b>\n&unknown;</b></a>"), "refused");
    EXPECT_TRUE(reason_.starts_with("line ")) << reason_;
}

TEST_P(Parsers, LookNothingUpAndExpandNothing)
{
    HostFixture host;
    host.writeFile("/secret", "secret");
    const std::string file = host.path("/secret").string();
    const std::string bomb = "<!DOCTYPE a [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
                             "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'>]><a>&c;&c;</a>";
    for (const std::string& text : std::initializer_list<std::string>{
             bomb, "<!DOCTYPE a [<!ENTITY f SYSTEM '" + file + "'>]><a>&f;</a>",
             "<!DOCTYPE a [<!ENTITY % f SYSTEM '" + file + "'> %f;]><a/>",
             "<!DOCTYPE a SYSTEM '" + file + "'><a>&f;</a>", "<!DOCTYPE a [<!ATTLIST a b CDATA 'default'>]><a/>",
             std::string("<!DOCTYPE a [%p;]><a/>"),
             std::string("<!DOCTYPE a [<!ELEMENT a ANY><!NOTATION n SYSTEM 'n'>]><a/>")})
        EXPECT_EQ(parsed(text), "refused") << text;
}

TEST_P(Parsers, HoldTheirLimits)
{
    const CpuTime used;
    for (const auto& text :
         {repeated("<a>", 513) + repeated("</a>", 513), repeated("<a>", 10'000), repeated("<a>", 1'000'000),
          "<a>" + repeated("<b/>", 25'000'000) + "</a>", "<a>" + repeated("x", 100'000'000) + "</a>"})
        EXPECT_EQ(parsed(text), "refused");
    const auto withAttributes = [](int count) {
        std::string text = "<a";
        for (int i = 0; i < count; ++i)
            text += " a" + std::to_string(9'999'999 - i) + "='>'";
        return text + "/>";
    };
    EXPECT_NE(parsed("<r><!--'-->" + repeated(withAttributes(512), 8) + "</r>"), "refused");
    for (const int count : {513, 100'000, 1'000'000})
        EXPECT_EQ(parsed("<r>" + withAttributes(count) + "</r>"), "refused") << count;
    EXPECT_NE(parsed("<a>" + repeated("<b c='d'>text</b>\n", 20'000) + "</a>"), "refused");
    EXPECT_LT(used.seconds(), 20);
}

TEST_P(Parsers, WriteNothingThemselves)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(parsed("<a><b>&x;</a>"), "refused");
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
}

INSTANTIATE_TEST_SUITE_P(Shipped, Parsers,
                         testing::Values("ADMNSXMLParserImp", "ADMCFXMLParserImp", "ADMLibXMLParserImp"),
                         [](const auto& parser) { return std::string(parser.param); });

TEST(XmlParserFactory, TheDefaultGoesByTheSystemVersion)
{
    const auto className = [](const ADMXMLParser* parser) { return parser ? typeid(*parser).name() : "none"; };
    HostFixture host;
    const auto& factory = ADMXMLParserFactory::defaultFactory();
    host.setSystemVersion(0x1060);
    EXPECT_STREQ(className(factory.defaultParser().get()), className(factory.NSXMLParser().get()));
    host.setSystemVersion(0x1058);
    EXPECT_STREQ(className(factory.defaultParser().get()), className(factory.libXMLParser().get()));
    EXPECT_STRNE(className(factory.NSXMLParser().get()), className(factory.libXMLParser().get()));
}
