#include <dmf/ADMXMLParser.h>

#include <array>

namespace {

constexpr std::array<std::string_view, 1> operations{"parseData:errorDescription:"};
constexpr dmf::Protocol parserProtocol("ADMXMLParser", {}, operations);

} // namespace

const dmf::Protocol& ADMXMLParser::protocol()
{
    return parserProtocol;
}

ADMXMLParser::~ADMXMLParser() = default;
