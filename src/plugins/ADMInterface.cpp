#include <dmf/ADMInterface.h>

namespace {

constexpr std::string_view kOperations[] = {"lastError", "isAvailable", "parameters", "setParameters:", "serviceInfo"};
constexpr dmf::Protocol kProtocol("ADMInterface", {}, kOperations);

// Its factory makes objects that are ADMInterface, so a class that states how it is made states that as well.
constexpr std::string_view kInitializationOperations[] = {"initWithServiceInfo:"};
constexpr const dmf::Protocol* kInitializationAdopts[] = {&kProtocol};
constexpr dmf::Protocol kInitializationProtocol("ADMInterfaceInitialization", kInitializationAdopts,
                                                kInitializationOperations);

} // namespace

const dmf::Protocol& ADMInterface::protocol()
{
    return kProtocol;
}

ADMInterface::~ADMInterface() = default;

const dmf::Protocol& ADMInterfaceInitialization::protocol()
{
    return kInitializationProtocol;
}
