#include <dmf/ADMModelInfoHandler.h>

const dmf::Protocol& ADMModelInfoHandler::protocol()
{
    static constexpr std::string_view operations[] = {"info"};
    static constexpr dmf::Protocol it("ADMModelInfoHandler", {}, operations);
    return it;
}

ADMModelInfoHandler::~ADMModelInfoHandler() = default;

const dmf::Protocol& ADMModelInfoHandlerInitializer::protocol()
{
    static constexpr std::string_view operations[] = {"initWithData:table:"};
    static constexpr dmf::Protocol it("ADMModelInfoHandlerInitializer", {}, operations);
    return it;
}
