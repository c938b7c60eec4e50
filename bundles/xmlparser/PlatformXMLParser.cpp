#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLTreeBuilder.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/XmlReader.h>

#include <memory>
#include <string>

namespace {

/// Reads documents with the library's own reader.
class PlatformXMLParser final : public ADMXMLParser {
public:
    std::shared_ptr<ADMXMLElementImp> parseData(const dmf::Data& data, std::string* errorDescription) override
    {
        dmf::Error error;
        ADMXMLTreeBuilder tree;
        if (dmf::readXml(data.text(), tree, &error))
            return tree.takeRoot();
        if (errorDescription)
            *errorDescription = error.userInfo().string("DMErrorDescription").value_or("malformed XML");
        return nullptr;
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
