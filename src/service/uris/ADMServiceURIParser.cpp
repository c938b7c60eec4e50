#include <dmf/ADMServiceURIParser.h>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "foundation/keys/Vendors.h"
#include "platform/text/Ascii.h"
#include "platform/text/StringScanner.h"
#include "platform/text/UrlParts.h"
#include "service/uris/UriForms.h"
#include "service/uris/UriPieces.h"

using dmf::Dictionary;
using namespace dmf::internal;

namespace {

struct SchemeRow {
    std::string_view scheme;
    bool (ADMServiceURIParser::*parse)();
    const std::string_view* connectionType;
};

using Parser = ADMServiceURIParser;
// Looked through from the front: the usual schemes stand first.
constexpr std::array kSchemes{
    SchemeRow{"usb", &Parser::parseUSB, &kUSBConnectionType},
    SchemeRow{"socket", &Parser::parseSocket, &kSocketConnectionType},
    SchemeRow{"ipp", &Parser::parseSocket, &kIPPConnectionType},
    SchemeRow{"lpd", &Parser::parseSocket, &kLPDConnectionType},
    SchemeRow{"mdns", &Parser::parseMDNS, &kRendezvousConnectionType},
    SchemeRow{"dnssd", &Parser::parseMDNS, &kRendezvousConnectionType},
    SchemeRow{"bluetooth", &Parser::parseBluetooth, &kBluetoothConnectionType},
    SchemeRow{"vastel", &Parser::parseLegacyQLVastel, &kQLIPConnectionType},
    SchemeRow{"qlip", &Parser::parseQLIP, &kQLIPConnectionType},
};

const SchemeRow* rowForScheme(std::string_view scheme)
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

} // namespace

bool ADMServiceURIParser::parseURI(std::string_view uri)
{
    uri_ = uri;
    return parse();
}

bool ADMServiceURIParser::parse()
{
    components_ = {};
    if (uri_.empty() || uri_.size() > kLongestURI || holdsEscapedZero(uri_))
        return false;
    const auto scheme = schemeOfUrl(uri_);
    if (!scheme)
        return false;

    components_.reserve(6);
    const SchemeRow* const row = rowForScheme(*scheme);
    if (row)
        components_.set(kConnectionTypeProp, *row->connectionType);
    if (row && !(this->*row->parse)()) {
        DMFLog("warnings", "ServiceInfo: service info has been created with not valid URI '%@'.", uri_);
        return false;
    }
    if (!row && !parseUniversalURI(*dmf::Url::fromString(uri_))) {
        DMFLog("debug", "ServiceInfo: unknown connection type '%@' of '%@' URI, service info is not created.", *scheme,
               uri_);
        return false;
    }

    const auto* const vendor = components_[kVendorNameProp].asString();
    if (vendor && !isAcceptedVendor(*vendor)) {
        DMFLog("warnings", "ServiceInfo: vendor '%@' is not supported, service info for uri '%@' was not created.",
               dmf::lowercased(*vendor), uri_);
        return false;
    }
    return true;
}

bool ADMServiceURIParser::isStandardURI() const
{
    if (uri_.empty())
        return false;
    const auto scheme = schemeOfUrl(uri_);
    if (scheme && rowForScheme(*scheme))
        return true;
    const auto* const type = components_[kConnectionTypeProp].asString();
    return type && knownConnectionTypes().contains(*type);
}

const std::set<std::string, std::less<>>& ADMServiceURIParser::knownConnectionTypes()
{
    static const auto* const types = [] {
        auto* const known = new std::set<std::string, std::less<>>;
        for (const SchemeRow& row : kSchemes)
            known->emplace(*row.connectionType);
        return known;
    }();
    return *types;
}

bool ADMServiceURIParser::parseUSB()
{
    std::string buffer;
    const auto text = unescaped(uri_, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto vendor = scanner.scanUpTo("/");
    if (!vendor)
        return false;
    scanner.scan("/");
    const auto model = scanner.scanUpTo("?");
    if (!model)
        return false;
    scanner.scan("?");

    std::optional<std::string_view> serial;
    forEachPiece(scanner.remaining(), '&', [&](std::string_view element) {
        if (const auto value = textAfterKey(element, "serial="))
            serial = value;
    });
    components_.set(kModelNameProp, *model);
    if (serial)
        components_.set(kParamsProp, untilFirstMissing({{kSerialNumberParam, serial}}));
    components_.set(kVendorNameProp, *vendor);
    return true;
}

void ADMServiceURIParser::parseQuery(std::string_view query, Dictionary& container) const
{
    const auto found = vendorAndModelIn(query);
    setIfPresent(container, kModelNameProp, found.model);
    setIfPresent(container, kVendorNameProp, found.vendor);
}

bool ADMServiceURIParser::parseBluetooth()
{
    std::string buffer;
    const auto text = unescaped(uri_, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("//");
    scanner.scan("//");
    const auto address = scanner.scanUpTo("?");
    if (!address)
        return false;
    components_.set(kParamsProp, Dictionary{{std::string(kMACAddressParam), *address}});
    scanner.scan("?");
    parseQuery(scanner.remaining(), components_);
    return true;
}

bool ADMServiceURIParser::parseUniversalURI(const dmf::Url& url)
{
    if (url.host() != kDMUniversalURIToken)
        return false;
    const std::string path = url.path();
    std::vector<Pair> pairs;
    forEachPiece(path, '&', [&](std::string_view element) {
        if (const auto pair = firstTwoPieces(element))
            pairs.push_back(*pair);
    });
    // Sorted, because a dictionary takes many keys fast only in the order in which it keeps them; stable, because of
    // two pairs with one key the later counts.
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.first < b.first; });

    Dictionary params;
    params.reserve(pairs.size());
    std::optional<std::string_view> type;
    for (const auto& [key, value] : pairs) {
        if (key == kConnectionTypeProp)
            type = value;
        else if (key != "/v") // the version; the slash is the one that begins the path
            params.set(key, value);
    }
    if (!type)
        return false;
    components_.set(kConnectionTypeProp, *type);
    components_.set(kParamsProp, params);
    components_.reserve(params.size() + 2);
    components_.merge(params);
    return true;
}
