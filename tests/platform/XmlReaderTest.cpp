#include <dmf/platform/XmlReader.h>

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

/// Writes down what it receives; throws at an element "throw".
class Log final : public dmf::XmlReceiver {
public:
    void beginElement(std::string_view name, std::span<const Attribute> attributes) override
    {
        if (name == "throw")
            throw std::runtime_error("thrown");
        text_ += "<" + std::string(name);
        for (const auto& [attribute, value] : attributes)
            text_.append(" ").append(attribute).append("=").append(value);
        text_ += ">";
    }
    void text(std::string_view text) override { text_.append("[").append(text).append("]"); }
    void endElement() override { text_ += "/"; }

    [[nodiscard]] const std::string& received() const { return text_; }

private:
    std::string text_;
};

} // namespace

TEST(XmlReader, HandsThePartsOverInTheirOrder)
{
    const std::pair<const char*, const char*> cases[] = {
        {"<a z='1' b='&lt;'>\n  <b> x </b>\n <c/>t&amp;u<c> </c> </a>", "<a z=1 b=<><b>[ x ]/<c>/[t&u]<c>//"},
        {"<a> <!-- c --> <b/> x<!-- c --> <![CDATA[]]]]>&#32;y<?p?> </a>", "<a><b>/[ x ]] y ]/"},
        {"<?xml version='1.0'?><a>&#32;<b>&#32;x</b></a>", "<a><b>[ x]//"},
    };
    for (const auto& [text, expected] : cases) {
        Log log;
        EXPECT_TRUE(dmf::readXml(text, log)) << text;
        EXPECT_EQ(log.received(), expected) << text;
    }
}

TEST(XmlReader, StopsAtTheFirstFault)
{
    const std::pair<const char*, const char*> cases[] = {
        {"<a b='1' b='2'/>", ""},
        {"<a><b>x</b><c d='&x;'/><e/></a>", "<a><b>[x]/"},
        {"<a><b><b>&x;</b><c/></b></a>", "<a><b><b>"},
        {"<a><b>x</b></a><a/>", ""},
        {"<a><b>", ""},
    };
    for (const auto& [text, expected] : cases) {
        Log log;
        dmf::Error error;
        EXPECT_FALSE(dmf::readXml(text, log, &error)) << text;
        EXPECT_TRUE(error) << text;
        EXPECT_EQ(log.received(), expected) << text;
    }
    Log log;
    EXPECT_THROW((void)dmf::readXml("<a><throw/></a>", log), std::runtime_error);
}
