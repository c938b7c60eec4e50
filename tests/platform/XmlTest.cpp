#include <dmf/platform/Xml.h>

#include <string>

#include <gtest/gtest.h>

#include "support/CpuTime.h"
#include "support/Pieces.h"
#include "support/Repeated.h"

using dmf::Error;
using dmf::XmlDocument;
using dmf::XmlElement;
using dmf::XmlErrorCode;
using dmf::XmlNode;

namespace {

std::shared_ptr<XmlDocument> parse(std::string_view text, unsigned options = dmf::kXmlNoOptions)
{
    Error error;
    auto document = XmlDocument::parse(text, options, &error);
    EXPECT_EQ(document == nullptr, bool(error)) << text.substr(0, 100);
    return document;
}

std::string body(const std::shared_ptr<XmlDocument>& document)
{
    return document ? document->rootElement().xmlString() : "refused";
}

std::string names(const std::vector<XmlNode>& nodes)
{
    std::string text;
    for (const auto& node : nodes)
        text += (node.element() ? node.element().name() : "'" + node.stringValue() + "'") + " ";
    return text;
}

} // namespace

TEST(Xml, DocumentsAreReadAndWrittenBack)
{
    const auto document = parse("\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\n<!DOCTYPE a SYSTEM 'x[]'>"
                                "<!-- c --><a:r xmlns:a='urn:a' k='&lt;&#10;\n&quot;'>\n t&amp;<![CDATA[<&]]>"
                                "<b/><!--in--><?pi?> <c>\xC3\xA4</c>\r\n</a:r>\n");
    ASSERT_TRUE(document);
    EXPECT_EQ(document->xmlString(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!-- c --><a:r xmlns:a=\"urn:a\" "
                                     "k=\"&lt;&#10; &quot;\">\n t&amp;&lt;&amp;<b/><!--in--><c>\xC3\xA4</c></a:r>");
    const auto root = document->rootElement();
    EXPECT_EQ(root.attribute("k"), "<\n \"");
    EXPECT_EQ(root.stringValue(), "\n t&<&\xC3\xA4");
    EXPECT_EQ(names(root.children()), "'\n t&' '<&' b 'in' c ");
    const auto again = parse(document->xmlString());
    EXPECT_EQ(body(again), body(document));
    EXPECT_EQ(body(parse("<a> <b> </b> </a>", dmf::kXmlPreserveWhitespace)), "<a> <b> </b> </a>");
}

TEST(Xml, NamespacesAreResolvedFromTheInside)
{
    const auto document = parse("<r xmlns='urn:d' xmlns:p='urn:1'><p:x/><x/><s xmlns:p='urn:2' xmlns=''><p:x/><x/></s>"
                                "</r>");
    ASSERT_TRUE(document);
    const auto root = document->rootElement();
    EXPECT_EQ(root.elementsForLocalName("x", "urn:1").size(), 1u);
    EXPECT_EQ(root.elementsForLocalName("x", "urn:d").at(0).name(), "x");
    EXPECT_EQ(root.elementsForName("p:x").at(0).localName(), "x");
    const auto inner = parse(document->xmlString())->rootElement().elements().at(2); // keeps its document
    EXPECT_EQ(inner.elements().at(0).URI(), "urn:2");
    EXPECT_EQ(inner.elements().at(0).prefix(), "p");
    EXPECT_EQ(inner.elements().at(1).URI(), "");
    EXPECT_EQ(inner.elementsForLocalName("x", "").size(), 1u);
}

TEST(Xml, WhatIsNotWellFormedIsRefused)
{
    for (const auto& text : pieces(
             "|text|<a>|<a></b>|<a/><b/>|<a/>text|text<a/>|<1a/>|<a b='1' b='2'/>|<a b/>|<a b=c/>|<a b='<'/>|<a>]]></a>"
             "|<a>&unknown;</a>|<a>a & b</a>|<a b='&x;'/>|<a>&#0;</a>|<a><!-- a -- b --></a>|<a><!-- a ---></a>|<p:a/>"
             "|<a p:b='1'/>|<a xmlns:p=''/>|<a xmlns:p='u'><p:b:c/></a>|<a><b xmlns:p='u'/><p:c/></a>|<a>\x01</a>"
             "|<a>\xFF</a>| <?xml version='1.0'?><a/>|<a/><!DOCTYPE a>|<a><![CDATA[</a>|<a><!-- </a>")) {
        Error error;
        EXPECT_FALSE(XmlDocument::parse(text, dmf::kXmlNoOptions, &error)) << text;
        EXPECT_EQ(error.domain(), dmf::kXmlErrorDomain);
        EXPECT_TRUE(error.userInfo().string("DMErrorDescription")) << text;
    }
    EXPECT_FALSE(XmlDocument::parse(std::string_view("<a>\0</a>", 8)));
    Error error;
    EXPECT_FALSE(XmlDocument::parse("<a>\n<b>\n&x;</b></a>", dmf::kXmlNoOptions, &error));
    EXPECT_EQ(error.code(), static_cast<int>(XmlErrorCode::entity));
    EXPECT_EQ(error.userInfo().string("DMErrorDescription"), "line 2: an unknown entity");
}

TEST(Xml, TidyRepairsWhatIsMalformedAndLeavesTheRest)
{
    const std::pair<const char*, const char*> cases[] = {
        {"<a><b></a>", "<a><b/></a>"},
        {"<a><b>x<c>y</b>z</a>", "<a><b>x<c>y</c></b>z</a>"},
        {"<a>1 < 2 & 3 &amp; 4 &nbsp; 5</a>", "<a>1 &lt; 2 &amp; 3 &amp; 4 &amp;nbsp; 5</a>"},
        {"<a b=1 c='2' d e=\"<\" b=3>t</a>", "<a b=\"1\" c=\"2\" d=\"d\" e=\"&lt;\">t</a>"},
        {"junk <?xml version='1.0'?><!DOCTYPE a [<!ENTITY x '>'>]><a>t</a> junk", "<a>t</a>"},
        // A document type ends where it ends: not at what stands in quotes or within its declarations.
        {"<!DOCTYPE a [<!ENTITY x ']>'>]><a/>", "<a/>"},
        {"<!DOCTYPE a [<!ENTITY x \">'\"><!ENTITY y '\"['>]><a>t</a>", "<a>t</a>"},
        {"<!DOCTYPE it's><a>t'</a>", "<a>t'</a>"},
        {"<a></c>t</a></a>", "<a>t</a>"},
        {"<a><!-- x -- y ---></a>", "<a><!-- x - - y - --></a>"},
        {"<a><![CDATA[<&]]><![CDATA[open", "<a>&lt;&amp;open</a>"},
        {"<a>\xFF\x01x</a>", "<a>\xEF\xBF\xBDx</a>"},
        {"<a></", "<a>&lt;/</a>"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(body(parse(text, dmf::kXmlTidy)), expected) << text;
    for (const char* text : {"", "text", "<a/><b/>", "<p:a/>"})
        EXPECT_FALSE(parse(text, dmf::kXmlTidy)) << text;
    // What is well-formed stays as it is, and every beginning of it can be repaired, once it names a root.
    const std::string text = "<a b=\"1&amp;2\" c=\"'\"><!-- x --><d/>t &lt; u<e xmlns:p=\"u\"><p:f/></e></a>";
    EXPECT_EQ(body(parse(text, dmf::kXmlTidy)), body(parse(text)));
    for (std::size_t length = 2; length < text.size(); ++length)
        EXPECT_TRUE(parse(text.substr(0, length), dmf::kXmlTidy)) << text.substr(0, length);
}

TEST(Xml, TreesAreChangedThroughHandles)
{
    const auto document = XmlDocument::withRootElement("r");
    ASSERT_TRUE(document);
    const auto root = document->rootElement();
    const auto child = root.appendElement("c");
    EXPECT_TRUE(child.setStringValue("a<b\r"));
    EXPECT_TRUE(child.setAttribute("k", "1\t\""));
    EXPECT_TRUE(child.setAttribute("k", "2\n"));
    EXPECT_TRUE(root.appendText("t"));
    const auto comment = root.appendComment("note");
    EXPECT_EQ(root.xmlString(), "<r><c k=\"2&#10;\">a&lt;b&#13;</c>t<!--note--></r>");
    EXPECT_EQ(body(parse(document->xmlString())), root.xmlString());
    child.removeAttribute("k");
    EXPECT_TRUE(comment.remove());
    EXPECT_FALSE(root.remove());
    EXPECT_EQ(root.xmlString(), "<r><c>a&lt;b&#13;</c>t</r>");
    EXPECT_TRUE(root.setStringValue("only"));
    EXPECT_EQ(root.xmlString(), "<r>only</r>");

    // What XML cannot carry changes nothing.
    EXPECT_FALSE(XmlDocument::withRootElement("not a name"));
    const auto note = root.appendComment("c");
    for (const char* name : {"", "1", "a b", "a:", "a:b:c", "\xFF"}) {
        EXPECT_FALSE(root.appendElement(name)) << name;
        EXPECT_FALSE(root.setAttribute(name, "v")) << name;
    }
    EXPECT_FALSE(root.setStringValue("\x01") || root.appendText("\xFF") || root.appendComment("a--b"));
    EXPECT_FALSE(note.setStringValue("-") || root.setAttribute("a", std::string_view("\0", 1)));
    EXPECT_EQ(root.xmlString(), "<r>only<!--c--></r>");
    const XmlElement none;
    EXPECT_FALSE(none.appendElement("a") || none.appendText("t") || none.setStringValue("t") || none.remove());
    EXPECT_TRUE(none.xmlString().empty() && none.children().empty() && none.nodesForXPath("//a").empty());
}

TEST(Xml, XPathSelectsNodes)
{
    const auto document = parse("<r><a n='1'>x</a><b><a n='2'/><p:a xmlns:p='u'/></b><!--c--></r>");
    ASSERT_TRUE(document);
    const auto root = document->rootElement();
    EXPECT_EQ(names(root.nodesForXPath("b/a | a | b/p:a | comment()")), "a a p:a 'c' ");
    EXPECT_EQ(names(root.nodesForXPath("..")) + names(root.nodesForXPath("a/@n")), "") << "elements and text only";
    EXPECT_EQ(names(root.elements().at(1).nodesForXPath("a")), "a ");
    for (const auto& expression : {std::string("a["), std::string("count(a)"), std::string(""), std::string("$x"),
                                   repeated("(", 100'000) + "a" + repeated(")", 100'000)}) {
        Error error;
        EXPECT_TRUE(root.nodesForXPath(expression, &error).empty());
        EXPECT_EQ(error.code(), static_cast<int>(XmlErrorCode::expression));
    }
}

TEST(Xml, HostileDocumentsCostLittle)
{
    const CpuTime used;
    EXPECT_TRUE(parse(repeated("<a>", 512) + repeated("</a>", 512)));
    for (const unsigned options : {dmf::kXmlNoOptions, dmf::kXmlTidy}) {
        for (const auto& text :
             {repeated("<a>", 513) + repeated("</a>", 513), repeated("<a>", 10'000),
              repeated("<a>", 300'000) + repeated("</b>", 300'000), "<a>" + repeated("<b/>", 25'000'000) + "</a>",
              "<a>" + repeated("x", 100'000'000) + "</a>", repeated("<", 3 << 20)})
            EXPECT_FALSE(parse(text, options)) << text.substr(0, 20);
    }
    std::string prefixes = "<a";
    for (int i = 0; i < 100'000; ++i)
        prefixes += " xmlns:p" + std::to_string(i) + "='u'";
    EXPECT_FALSE(parse(prefixes + ">" + repeated("<p9:b/>", 100'000) + "</a>"));
    EXPECT_FALSE(parse("<!DOCTYPE a [<!ENTITY a 'aa'><!ENTITY b '&a;&a;'>]><a>&b;</a>"));
    EXPECT_FALSE(parse("<!DOCTYPE a [<!ENTITY f SYSTEM 'file:///etc/passwd'>]><a>&f;</a>"));

    const auto deepest = XmlDocument::withRootElement("r");
    XmlElement element = deepest->rootElement();
    for (int i = 1; i < 512; ++i)
        element = element.appendElement("e");
    EXPECT_TRUE(element);
    EXPECT_FALSE(element.appendElement("e"));
    EXPECT_LT(used.seconds(), 20);
}
