#include <dmf/ADMModelInfo.h>

const dmf::Protocol& ADMModelInfo::protocol()
{
    static constexpr std::string_view operations[] = {
        "modelName",        "vendorName",    "familyName", "pathToIcon",           "utilityName",
        "utilitySignature", "modelCodeName", "modelId",    "infoForPath:inTable:", "valueForInfoPath:inTable:"};
    static constexpr dmf::Protocol it("ADMModelInfo", {}, operations);
    return it;
}

ADMModelInfo::~ADMModelInfo() = default;

const dmf::Protocol& ADMCoreModelInfo::protocol()
{
    static constexpr std::string_view operations[] = {
        "transportInfo", "availableFunctionalInterfacesForServiceName:", "availableProtocolsForFunctionalInterface:",
        "functionalInfo:connectionType:"};
    static const dmf::Protocol* const adopted[] = {&ADMModelInfo::protocol()};
    static const dmf::Protocol it("ADMCoreModelInfo", adopted, operations);
    return it;
}

ADMCoreModelInfo::~ADMCoreModelInfo() = default;
