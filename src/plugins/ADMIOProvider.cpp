#include <dmf/ADMIOProvider.h>

namespace {

constexpr std::string_view kOperations[] = {"implementorClassForProtocolWithName:"};
constexpr dmf::Protocol kProtocol("ADMIOProvider", {}, kOperations);

} // namespace

const dmf::Protocol& ADMIOProvider::protocol()
{
    return kProtocol;
}

ADMIOProvider::~ADMIOProvider() = default;
