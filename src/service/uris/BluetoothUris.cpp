#include <dmf/DMKeys.h>

#include "platform/text/StringScanner.h"
#include "service/uris/UriReading.h"

namespace dmf::internal {

bool readBluetoothUri(std::string_view uri, UriEntries& components)
{
    std::string buffer;
    const auto text = unescaped(uri, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto address = scanner.scanUpTo("?");
    if (!address)
        return false;
    components.set(kParamsProp, Dictionary{{std::string(kMACAddressParam), *address}});
    scanner.scan("?");
    const auto [vendor, model] = vendorAndModelIn(scanner.remaining());
    components.setIfPresent(kVendorNameProp, vendor);
    components.setIfPresent(kModelNameProp, model);
    return true;
}

} // namespace dmf::internal
