#include <dmf/ADMInfo.h>

#include <array>

namespace {

constexpr std::array<std::string_view, 5> valueOperations{"value", "dateValue", "dataValue", "numberValue",
                                                          "stringValue"};
constexpr dmf::Protocol valueProtocol("ADMInfoValue", {}, valueOperations);

constexpr std::array<const dmf::Protocol*, 1> infoAdopts{&valueProtocol};
constexpr std::array<std::string_view, 9> infoOperations{"properties",
                                                         "name",
                                                         "infoNamed:withPropertyValue:forProperty:",
                                                         "infoNamed:withProperties:",
                                                         "infoNamed:atIndex:",
                                                         "infoNamed:",
                                                         "infoForPath:",
                                                         "allInfos",
                                                         "count"};
constexpr dmf::Protocol infoProtocol("ADMInfo", infoAdopts, infoOperations);

} // namespace

const dmf::Protocol& ADMInfoValue::protocol()
{
    return valueProtocol;
}

ADMInfoValue::~ADMInfoValue() = default;

const dmf::Protocol& ADMInfo::protocol()
{
    return infoProtocol;
}

ADMInfo::~ADMInfo() = default;
