#include <dmf/ADMIOProvider.h>

const dmf::Protocol& ADMIOProvider::protocol()
{
    static constexpr std::string_view operations[] = {"implementorClassForProtocolWithName:"};
    static constexpr dmf::Protocol it("ADMIOProvider", {}, operations);
    return it;
}

ADMIOProvider::~ADMIOProvider() = default;
