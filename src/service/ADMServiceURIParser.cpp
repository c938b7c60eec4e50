#include <dmf/ADMServiceURIParser.h>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <utility>
#include <vector>

#include "foundation/InternalKeys.h"
#include "platform/StringScanner.h"
#include "platform/UrlParts.h"
#include "service/UriForms.h"

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

/// Calls `visit` with each piece between the separators; a text without one is a single piece.
template <class Visit>
void forEachPiece(std::string_view text, char separator, Visit visit)
{
    for (;;) {
        const auto end = text.find(separator);
        visit(text.substr(0, end));
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

/// The first two of the pieces between equals signs; nothing when there is only one.
std::optional<Pair> firstTwoPieces(std::string_view element)
{
    const auto equals = element.find('=');
    if (equals == std::string_view::npos)
        return std::nullopt;
    const auto rest = element.substr(equals + 1);
    return Pair(element.substr(0, equals), rest.substr(0, rest.find('=')));
}

/// The text of an element that holds `key`, an ASCII text, in any letter case: the element without as many characters
/// as the key has. It is counted from the element's beginning, so it reads well only where the key stands there.
std::optional<std::string_view> textAfterKey(std::string_view element, std::string_view key)
{
    if (element.size() < key.size())
        return std::nullopt;
    if (equalIgnoringAsciiCase(element.substr(0, key.size()), key))
        return element.substr(key.size());
    if (!dmf::findIgnoringCase(element, key))
        return std::nullopt;
    for (std::size_t dropped = 0; dropped < key.size() && !element.empty(); ++dropped)
        (void)dmf::takeCharacter(element);
    return element;
}

/// Stores the entries up to the first that is missing: what a device's interface is worth without its address, nobody
/// can tell.
Dictionary
untilFirstMissing(std::initializer_list<std::pair<std::string_view, std::optional<std::string_view>>> entries)
{
    Dictionary result;
    result.reserve(entries.size());
    for (const auto& [key, value] : entries) {
        if (!value)
            break;
        result.set(key, *value);
    }
    return result;
}

void setAddress(Dictionary& params, std::string_view address)
{
    dmf::Array all;
    all.append(address);
    params.set(kAllIPAddressesParam, std::move(all));
    params.set(kIPAddressParam, address);
}

/// An authority of fewer than two colons: a host name or an IPv4 address, and maybe a port, which is not checked.
void readHostAndPort(std::string_view authority, Dictionary& params, Dictionary& components)
{
    const auto colon = authority.find(':');
    const auto host = authority.substr(0, colon);
    if (dmf::CharacterSet::letters().containsAnyOf(host)) {
        params.set(kHostNameParam, host);
        components.set(kDeviceNameProp, host);
    } else {
        setAddress(params, host);
    }
    if (colon != std::string_view::npos)
        params.set(kIPPortParam, authority.substr(colon + 1));
}

/// An IPv6 authority: in brackets, and then maybe with a port, or bare.
bool readIPv6Authority(std::string_view authority, Dictionary& params)
{
    std::string_view address = authority;
    const auto opening = authority.find('[');
    const auto closing = authority.find(']');
    if (closing != std::string_view::npos) {
        if (closing < 2 || opening != 0)
            return false;
        address = authority.substr(1, closing - 1);
        const auto tail = authority.substr(closing);
        const auto colon = tail.find(':');
        if (colon != std::string_view::npos && tail.find(':', colon + 1) == std::string_view::npos)
            params.set(kIPPortParam, tail.substr(colon + 1));
    } else if (opening != std::string_view::npos) {
        return false;
    }
    // The URI's own escapes are gone by now: a zone separator that is still escaped was escaped twice.
    const auto zone = address.find("%25");
    if (zone == std::string_view::npos)
        setAddress(params, address);
    else
        setAddress(params, joined({address.substr(0, zone + 1), address.substr(zone + 3)}));
    return true;
}

/// A zero byte would end the text early in every C interface that a component is handed to.
bool holdsEscapedZero(std::string_view uri)
{
    const auto percent = uri.find('%');
    return percent != std::string_view::npos && uri.find("%00", percent) != std::string_view::npos;
}

/// The whole URI with its escapes replaced, which needs the buffer only where there are any; nothing when one is
/// malformed.
std::optional<std::string_view> unescaped(std::string_view uri, std::string& buffer)
{
    return uri.find('%') == std::string_view::npos ? uri : percentUnescaped(uri, buffer);
}

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
    const auto url = UrlParts::split(uri_);
    if (!url)
        return false;

    components_.reserve(6);
    const SchemeRow* const row = rowForScheme(url->scheme);
    if (row)
        components_.set(kConnectionTypeProp, *row->connectionType);
    if (row && !(this->*row->parse)()) {
        DMFLog("warnings", "ServiceInfo: service info has been created with not valid URI '%@'.", uri_);
        return false;
    }
    if (!row && !parseUniversalURI(*dmf::Url::fromString(uri_))) {
        DMFLog("debug", "ServiceInfo: unknown connection type '%@' of '%@' URI, service info is not created.",
               url->scheme, uri_);
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
    const auto url = UrlParts::split(uri_);
    if (url && rowForScheme(url->scheme))
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

bool ADMServiceURIParser::parseSocket()
{
    // A printer that was set up by its Bonjour name keeps the scheme of the transport that it prints over.
    // (The underscore is looked for first because addresses are full of dots.)
    if (uri_.find('_') != std::string::npos && uri_.find("._tcp.local.") != std::string::npos)
        return parseMDNS();

    std::string buffer;
    const auto text = unescaped(uri_, buffer);
    if (!text)
        return false;
    StringScanner scanner(*text);
    scanner.scanUpTo("://");
    scanner.scan("://");
    const auto authority = scanner.scanUpToAnyOf("/?");
    if (!authority)
        return false;

    Dictionary params;
    params.reserve(3);
    if (std::count(authority->begin(), authority->end(), ':') < 2)
        readHostAndPort(*authority, params, components_);
    else if (!readIPv6Authority(*authority, params))
        return false;
    scanner.scanAnyOf("/?");
    if (!scanner.atEnd())
        parseQuery(scanner.remaining(), components_);
    components_.set(kParamsProp, std::move(params));
    return true;
}

void ADMServiceURIParser::parseQuery(std::string_view query, Dictionary& container) const
{
    std::optional<std::string_view> vendor, model;
    forEachPiece(query, '&', [&](std::string_view element) {
        if (const auto text = textAfterKey(element, "vendor="))
            vendor = text;
        else if (const auto product = textAfterKey(element, "product="))
            model = product;
    });
    // In the order of the keys, as everywhere here: a dictionary then only appends.
    if (model)
        container.set(kModelNameProp, *model);
    if (vendor)
        container.set(kVendorNameProp, *vendor);
}

bool ADMServiceURIParser::parseMDNS()
{
    StringScanner scanner(uri_);
    if (!scanner.scanUpTo("//"))
        return false;
    scanner.scan("//");
    const auto escapedHost = scanner.scanUpTo("/");
    if (!escapedHost)
        return false;
    std::string buffer;
    const auto host = unescaped(*escapedHost, buffer);
    if (!host)
        return false;

    // From the end: what follows the last dot (nothing, as a rule), the domain, the protocol, the type. The name is
    // all that is left, dots included.
    std::array<std::size_t, 4> dots{};
    std::size_t end = host->size();
    for (std::size_t& dot : dots) {
        dot = end == 0 ? std::string_view::npos : host->rfind('.', end - 1);
        if (dot == std::string_view::npos)
            return false;
        end = dot;
    }
    const auto name = host->substr(0, dots[3]);
    const auto type = host->substr(dots[3] + 1, dots[2] - dots[3] - 1);
    const auto domain = host->substr(dots[1] + 1, dots[0] - dots[1]);

    Dictionary params;
    params.reserve(4);
    params.set(kBonjourServiceDomainParam, domain);
    params.set(kBonjourServiceNameParam, name);
    params.set(kBonjourServiceTypeParam, host->substr(dots[3] + 1, dots[1] - dots[3]));
    params.set(kRendezvousAddressParam, com_ql_dmf_stringByEncodingToURLNotation(joined({name, ".", domain})));
    components_.set(kDeviceNameProp, name);
    components_.set(kParamsProp, std::move(params));
    if (type == "_pdl-datastream" || type == "_printer")
        components_.set(kServiceNameProp, "PRINT");
    return true;
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

bool ADMServiceURIParser::parseQLIP()
{
    const auto url = dmf::Url::fromString(uri_);
    const auto host = url ? url->host() : std::nullopt;
    const auto query = url ? url->query() : std::nullopt;
    if (!host || !query || query->empty())
        return parseLegacyQLVastel();

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
    const auto modelName = model ? percentUnescaped(*model, buffer) : std::nullopt;
    if (!modelName || modelName->empty())
        return parseLegacyQLVastel();

    components_.set(kModelNameProp, *modelName);
    components_.set(kParamsProp, untilFirstMissing({{kIPAddressParam, *host},
                                                    {kMACAddressParam, dottedMACAddress(digits)},
                                                    {kInterfaceNumberParam, interfaceNumber}}));
    return true;
}

bool ADMServiceURIParser::parseLegacyQLVastel()
{
    std::string buffer;
    const auto text = unescaped(uri_, buffer);
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
    components_.set(kModelNameProp, *model);
    scanner.scan("/");

    std::optional<std::string_view> macAddress;
    const auto interfaceNumber = scanner.scanUpTo(":");
    if (interfaceNumber) {
        scanner.scan(":");
        macAddress = scanner.remaining();
    }
    components_.set(kParamsProp, untilFirstMissing({{kIPAddressParam, ipAddress},
                                                    {kMACAddressParam, macAddress},
                                                    {kInterfaceNumberParam, interfaceNumber}}));
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
