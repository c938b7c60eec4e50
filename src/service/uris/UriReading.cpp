#include "service/uris/UriReading.h"

#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Url.h>

#include <algorithm>
#include <array>
#include <utility>

#include "foundation/keys/Vendors.h"
#include "platform/text/Ascii.h"
#include "platform/text/UrlParts.h"

namespace dmf::internal {
namespace {

struct SchemeRow {
    std::string_view scheme;
    UriReader read;
    const std::string_view* connectionType;
};

// Looked through from the front: the usual schemes stand first.
constexpr std::array kSchemes{
    SchemeRow{"usb", readUsbUri, &kUSBConnectionType},
    SchemeRow{"socket", readSocketUri, &kSocketConnectionType},
    SchemeRow{"ipp", readSocketUri, &kIPPConnectionType},
    SchemeRow{"lpd", readSocketUri, &kLPDConnectionType},
    SchemeRow{"mdns", readBonjourUri, &kRendezvousConnectionType},
    SchemeRow{"dnssd", readBonjourUri, &kRendezvousConnectionType},
    SchemeRow{"bluetooth", readBluetoothUri, &kBluetoothConnectionType},
    SchemeRow{"vastel", readVastelUri, &kQLIPConnectionType},
    SchemeRow{"qlip", readQlipUri, &kQLIPConnectionType},
};

const SchemeRow* rowForScheme(std::string_view scheme) noexcept
{
    const auto row = std::find_if(kSchemes.begin(), kSchemes.end(), [scheme](const SchemeRow& candidate) {
        return equalIgnoringAsciiCase(candidate.scheme, scheme);
    });
    return row != kSchemes.end() ? &*row : nullptr;
}

/// A zero byte would end the text early in every C interface that a component is handed to.
bool holdsEscapedZero(std::string_view uri)
{
    const auto percent = uri.find('%');
    return percent != std::string_view::npos && uri.find("%00", percent) != std::string_view::npos;
}

std::optional<Dictionary> readTransportUri(const SchemeRow& row, std::string_view uri)
{
    UriEntries components;
    components.set(kConnectionTypeProp, *row.connectionType);
    return row.read(uri, components) ? std::optional(std::move(components).dictionary()) : std::nullopt;
}

std::optional<Dictionary> readUniversalUri(std::string_view uri)
{
    const auto url = Url::fromString(uri);
    return url && url->host() == kDMUniversalURIToken ? readUniversalPath(url->path()) : std::nullopt;
}

} // namespace

UriContents readUri(std::string_view uri)
{
    UriContents contents;
    const auto refused = [&](UriVerdict verdict) {
        contents.verdict = verdict;
        return std::move(contents);
    };
    if (uri.size() > ADMServiceURIParser::kLongestURI)
        return refused(UriVerdict::tooLong);
    const auto scheme = schemeOfUrl(uri);
    if (!scheme)
        return refused(UriVerdict::noUri);
    contents.scheme = *scheme;
    if (holdsEscapedZero(uri))
        return refused(UriVerdict::holdsZero);

    const SchemeRow* const row = rowForScheme(*scheme);
    auto components = row ? readTransportUri(*row, uri) : readUniversalUri(uri);
    if (!components)
        return refused(row ? UriVerdict::malformed : UriVerdict::unknownType);
    contents.components = *std::move(components);
    const auto* const vendor = contents.components[kVendorNameProp].asString();
    if (vendor && !isAcceptedVendor(*vendor))
        return refused(UriVerdict::foreignVendor);
    contents.verdict = UriVerdict::read;
    return contents;
}

bool isTransportScheme(std::string_view scheme) noexcept
{
    return rowForScheme(scheme) != nullptr;
}

const std::set<std::string, std::less<>>& transportConnectionTypes()
{
    static const auto* const types = [] {
        auto* const known = new std::set<std::string, std::less<>>;
        for (const SchemeRow& row : kSchemes)
            known->emplace(*row.connectionType);
        return known;
    }();
    return *types;
}

} // namespace dmf::internal
