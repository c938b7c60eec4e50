#include <dmf/ADMXMLParserFactory.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/DMCore.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Class.h>

namespace {

/// The factory as a class, by which the plug-in manager knows in whose plug-in folder to look.
std::shared_ptr<const dmf::Class> factoryClass()
{
    static const char anchor = 0;
    static const auto* const made =
        new std::shared_ptr<const dmf::Class>(std::make_shared<dmf::Class>("ADMXMLParserFactory", &anchor));
    return *made;
}

} // namespace

ADMXMLParserFactory& ADMXMLParserFactory::defaultFactory()
{
    static auto* const factory = new ADMXMLParserFactory;
    return *factory;
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::parserNamed(std::string_view className) const
{
    dmf::Dictionary matching;
    matching.set(kDMPlugInClasses, className);
    std::shared_ptr<ADMXMLParser> parser;
    if (ADMPlugInManager::sharedManager()->loadPlugInForClass(factoryClass(), matching)) {
        if (const auto found = dmf::ClassRegistry::shared().classNamed(className))
            parser = found->make<ADMXMLParser>();
    }
    if (!parser)
        DMFLog("debug", "XMLParser: not found plug-in with '%@' implementation.", className);
    return parser;
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::NSXMLParser() const
{
    return parserNamed("ADMNSXMLParserImp");
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::CFXMLParser() const
{
    return parserNamed("ADMCFXMLParserImp");
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::libXMLParser() const
{
    return parserNamed("ADMLibXMLParserImp");
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::defaultParser() const
{
    return DMGetLocalSysVersion() < 0x1060 ? libXMLParser() : NSXMLParser();
}
