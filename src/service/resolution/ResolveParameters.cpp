#include "service/resolution/ResolveParameters.h"

#include <dmf/DMKeys.h>

#include <initializer_list>
#include <string_view>

namespace dmf::internal {
namespace {

Dictionary wanted(std::initializer_list<std::string_view> keys)
{
    Dictionary result;
    for (const auto key : keys)
        result.set(key, true);
    return result;
}

} // namespace

const Dictionary& connectionTypeToParametersMap()
{
    static const auto* const map = [] {
        auto* const table = new Dictionary;
        table->set(kBluetoothConnectionType, wanted({kDeviceNameProp, kMACAddressParam}));
        table->set(kSocketConnectionType, wanted({kDeviceNameProp, kSerialNumberParam}));
        table->set(kQLIPConnectionType,
                   wanted({kDeviceNameProp, kSerialNumberParam, kInterfaceNumberParam, kMACAddressParam}));
        table->set(kRendezvousConnectionType, wanted({kDeviceNameProp, kSerialNumberParam}));
        return table;
    }();
    return *map;
}

} // namespace dmf::internal
