#include <dmf/DMKeys.h>

#include "platform/text/StringScanner.h"
#include "service/uris/UriReading.h"

namespace dmf::internal {

bool readUsbUri(std::string_view uri, UriEntries& components)
{
    std::string buffer;
    const auto text = unescaped(uri, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto vendor = scanner.scanUpTo("/");
    if (!vendor)
        return false;
    components.set(kVendorNameProp, *vendor);
    scanner.scan("/");
    const auto model = scanner.scanUpTo("?");
    if (!model)
        return false;
    components.set(kModelNameProp, *model);
    scanner.scan("?");

    std::optional<std::string_view> serial;
    forEachPiece(scanner.remaining(), '&', [&](std::string_view element) {
        if (const auto value = textAfterKey(element, "serial="))
            serial = value;
    });
    if (serial)
        components.set(kParamsProp, Dictionary{{std::string(kSerialNumberParam), *serial}});
    return true;
}

} // namespace dmf::internal
