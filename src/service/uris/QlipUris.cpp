#include <dmf/DMKeys.h>
#include <dmf/platform/Url.h>

#include <utility>

#include "foundation/keys/InternalKeys.h"
#include "platform/text/StringScanner.h"
#include "service/uris/UriReading.h"

namespace dmf::internal {
namespace {

/// "001122334455" as "00.11.22.33.44.55"; nothing for a text of another length.
std::optional<std::string> dottedMACAddress(std::optional<std::string_view> digits)
{
    if (!digits || digits->size() != 12)
        return std::nullopt;
    std::string result(digits->substr(0, 2));
    for (std::size_t at = 2; at < 12; at += 2)
        result.append(".").append(digits->substr(at, 2));
    return result;
}

} // namespace

bool readQlipUri(std::string_view uri, UriEntries& components)
{
    const auto url = Url::fromString(uri);
    const auto host = url ? url->host() : std::nullopt;
    const auto query = url ? url->query() : std::nullopt;
    if (!host || !query || query->empty())
        return readVastelUri(uri, components);

    std::optional<std::string_view> model, digits, interfaceNumber;
    forEachPiece(*query, '&', [&](std::string_view element) {
        const auto pair = firstTwoPieces(element);
        if (!pair)
            return;
        if (pair->first == kDMQLIPModelName)
            model = pair->second;
        else if (pair->first == kDMQLIPMacAddress)
            digits = pair->second;
        else if (pair->first == kDMQLIPInterfaceID)
            interfaceNumber = pair->second;
    });
    std::string buffer;
    const auto modelName = model ? unescaped(*model, buffer) : std::nullopt;
    if (!modelName || modelName->empty())
        return readVastelUri(uri, components);

    components.set(kModelNameProp, *modelName);
    components.set(kParamsProp, dictionaryUntilFirstMissing({{kIPAddressParam, *host},
                                                             {kMACAddressParam, dottedMACAddress(digits)},
                                                             {kInterfaceNumberParam, interfaceNumber}}));
    return true;
}

bool readVastelUri(std::string_view uri, UriEntries& components)
{
    std::string buffer;
    const auto text = unescaped(uri, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto ipAddress = scanner.scanUpTo(":");
    if (!ipAddress)
        return false;
    scanner.scan(":");
    const auto model = scanner.scanUpTo("/");
    if (!model)
        return false;
    components.set(kModelNameProp, *model);
    scanner.scan("/");

    std::optional<std::string_view> macAddress;
    const auto interfaceNumber = scanner.scanUpTo(":");
    if (interfaceNumber) {
        scanner.scan(":");
        macAddress = scanner.remaining();
    }
    components.set(kParamsProp, dictionaryUntilFirstMissing({{kIPAddressParam, ipAddress},
                                                             {kMACAddressParam, macAddress},
                                                             {kInterfaceNumberParam, interfaceNumber}}));
    return true;
}

} // namespace dmf::internal
