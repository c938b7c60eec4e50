#include <dmf/ADMXMLParserFactory.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include <dmf/ADMPlugInManager.h>
#include <dmf/DMCore.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Class.h>

#include "plugins/GuardedMake.h"

namespace {

/// The factory as a class, by which the plug-in manager knows in whose plug-in folder to look.
std::shared_ptr<const dmf::Class> factoryClass()
{
    static const char anchor = 0;
    static const auto* const made =
        new std::shared_ptr<const dmf::Class>(std::make_shared<dmf::Class>("ADMXMLParserFactory", &anchor));
    return *made;
}

/// The parser class of that name, its plug-in loaded. A plug-in that is loaded stays so, and its class with it: the
/// plug-in folder is not looked through for each document.
std::shared_ptr<const dmf::Class> loadedClass(std::string_view name)
{
    struct Known {
        std::mutex lock;
        std::map<std::string, std::shared_ptr<const dmf::Class>, std::less<>> classes; // guarded by lock
    };
    static Known* const known = new Known;
    {
        std::lock_guard guard(known->lock);
        const auto entry = known->classes.find(name);
        if (entry != known->classes.end())
            return entry->second;
    }
    dmf::Dictionary matching;
    matching.set(kDMPlugInClasses, name);
    if (!ADMPlugInManager::sharedManager()->loadPlugInForClass(factoryClass(), matching))
        return nullptr;
    auto found = dmf::ClassRegistry::shared().classNamed(name);
    if (found) {
        std::lock_guard guard(known->lock);
        known->classes.emplace(name, found);
    }
    return found;
}

} // namespace

ADMXMLParserFactory& ADMXMLParserFactory::defaultFactory()
{
    static auto* const factory = new ADMXMLParserFactory;
    return *factory;
}

std::shared_ptr<ADMXMLParser> ADMXMLParserFactory::parserNamed(std::string_view className) const
{
    const auto found = loadedClass(className);
    const std::shared_ptr<ADMXMLParser> parser = dmf::internal::guardedMake<ADMXMLParser>(found);
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
