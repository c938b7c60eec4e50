#include "MockPlugIns.h"

#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>
#include <dmf/platform/Url.h>

#include "Output.h"

namespace dmf::tool {

namespace {

// Schemes are asked for in lower case. Only ASCII letters can stand in one.
std::string lowerCaseScheme(std::string_view uri)
{
    std::string scheme;
    if (const auto url = Url::fromString(uri))
        for (const char letter : url->scheme())
            scheme += letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    return scheme;
}

} // namespace

std::string shippedMockPlugInsPath()
{
    return Bundle::libraryBundle()->builtInPlugInsPath() + "/../MockPlugIns";
}

void useShippedMockPlugIn(std::string_view uri)
{
    const std::string scheme = lowerCaseScheme(uri);
    if (scheme.empty())
        return;
    const auto manager = ADMPlugInManager::sharedManager();
    const Dictionary matching{{std::string(kDMMockScheme), scheme}};
    if (!manager->pluginsFromBaseDir(manager->mockPlugInsPath(), matching).empty())
        return;
    for (const auto& bundle : manager->pluginsFromBaseDir(shippedMockPlugInsPath(), matching)) {
        std::string refusal;
        if (!bundle->load(&refusal))
            throw Failure(ExitCode::failed, "cannot use the plug-in " + bundle->path() + ": " + refusal);
        manager->registerMockImplementors(bundle->infoDictionary());
    }
}

} // namespace dmf::tool
