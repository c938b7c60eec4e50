#include <dmf/ADMXMLParser.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Xml.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

/// Reads documents with the library's own XML documents.
class PlatformXMLParser final : public ADMXMLParser {
public:
    std::shared_ptr<ADMXMLElementImp> parseData(const dmf::Data& data, std::string* errorDescription) override
    {
        dmf::Error error;
        // White space is asked for, since only here it is known which of it stands within a text.
        const auto document = dmf::XmlDocument::parse(data.bytes(), dmf::kXmlPreserveWhitespace, &error);
        if (document)
            return treeOf(document->rootElement());
        if (errorDescription)
            *errorDescription = error.userInfo().string("DMErrorDescription").value_or("malformed XML");
        return nullptr;
    }

private:
    struct Open {
        std::shared_ptr<ADMXMLElementImp> element;
        std::vector<dmf::XmlNode> children;
        std::size_t next = 0;
        std::string text; // what was read since the last child element
    };

    static Open opened(const dmf::XmlElement& source)
    {
        auto element = std::make_shared<ADMXMLElementImp>(source.name());
        element->setAttributes(source.attributes());
        return {std::move(element), source.children(), 0, {}};
    }

    static void endText(Open& open)
    {
        const auto isSpace = [](char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; };
        if (!std::ranges::all_of(open.text, isSpace))
            open.element->addElement(ADMXMLNodeImp::textNodeWithContent(open.text));
        open.text.clear();
    }

    static std::shared_ptr<ADMXMLElementImp> treeOf(const dmf::XmlElement& root)
    {
        std::vector<Open> open;
        open.push_back(opened(root));
        for (;;) {
            auto& current = open.back();
            if (current.next == current.children.size()) {
                endText(current);
                const auto finished = std::move(current.element);
                open.pop_back();
                if (open.empty())
                    return finished;
                open.back().element->addElement(finished);
                continue;
            }
            const auto& child = current.children[current.next++];
            if (child.kind() == dmf::XmlNode::Kind::text) {
                current.text += child.stringValue();
            } else if (const auto element = child.element()) {
                endText(current);
                open.push_back(opened(element));
            }
        }
    }
};

std::shared_ptr<ADMXMLParser> makeParser()
{
    return std::make_shared<PlatformXMLParser>();
}

} // namespace

DMF_REGISTER_CLASS(ADMNSXMLParserImp)
{
    described.implements<ADMXMLParser>(&makeParser);
}

DMF_REGISTER_CLASS(ADMCFXMLParserImp)
{
    described.implements<ADMXMLParser>(&makeParser);
}
