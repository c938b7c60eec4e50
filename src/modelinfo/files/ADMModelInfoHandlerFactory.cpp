#include <dmf/ADMModelInfoHandlerFactory.h>

#include <algorithm>
#include <string_view>

#include <dmf/ADMPlistModelInfoHandler.h>
#include <dmf/ADMXMLModelInfoHandler.h>
#include <dmf/DMKeys.h>

#include "modelinfo/files/ModelInfoLog.h"

ADMModelInfoHandlerFactory::Format ADMModelInfoHandlerFactory::infoFormatForData(const dmf::Data& data)
{
    constexpr std::size_t kLookedAt = 200;
    std::string_view head = data.text().substr(0, kLookedAt);
    head = head.substr(0, head.find('\0'));
    // An XML property list begins as any XML document does, so its own mark decides first.
    if (head.find(kDMPlistTag) != std::string_view::npos)
        return Format::propertyList;
    return head.find(kDMXMLTag) != std::string_view::npos ? Format::xml : Format::unknown;
}

std::shared_ptr<ADMModelInfoHandler> ADMModelInfoHandlerFactory::handlerForData(const dmf::Data& data,
                                                                                const std::string& table)
{
    switch (infoFormatForData(data)) {
    case Format::propertyList: return ADMPlistModelInfoHandler::initWithData(data, table);
    case Format::xml: return ADMXMLModelInfoHandler::initWithData(data, table);
    case Format::unknown: break;
    }
    dmf::internal::logModelInfo("warnings", "ModelInfo: unknown format of the model info file in '%@' table", table);
    return nullptr;
}
