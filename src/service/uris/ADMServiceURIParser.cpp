#include <dmf/ADMServiceURIParser.h>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Unicode.h>

#include <utility>

#include "platform/text/UrlParts.h"
#include "service/uris/UriReading.h"

using namespace dmf::internal;

namespace {

/// Adds what one reader finds; nothing where it refuses.
bool addedBy(UriReader read, std::string_view uri, dmf::Dictionary& components)
{
    UriEntries found;
    if (!read(uri, found))
        return false;
    components.merge(std::move(found).dictionary());
    return true;
}

void logRefusal(const UriContents& contents, const std::string& uri)
{
    switch (contents.verdict) {
    case UriVerdict::tooLong:
        DMFLog("warnings", "ServiceInfo: a URI of %lu bytes is too long, service info was not created.", uri.size());
        break;
    case UriVerdict::holdsZero:
        DMFLog("warnings", "ServiceInfo: the URI '%@' holds an escaped zero byte, service info was not created.", uri);
        break;
    case UriVerdict::malformed:
        DMFLog("warnings", "ServiceInfo: service info has been created with not valid URI '%@'.", uri);
        break;
    case UriVerdict::unknownType:
        DMFLog("debug", "ServiceInfo: unknown connection type '%@' of '%@' URI, service info is not created.",
               contents.scheme, uri);
        break;
    case UriVerdict::foreignVendor:
        DMFLog("warnings", "ServiceInfo: vendor '%@' is not supported, service info for uri '%@' was not created.",
               dmf::lowercased(contents.components.string(kVendorNameProp).value_or(std::string())), uri);
        break;
    case UriVerdict::read:
    case UriVerdict::noUri: break;
    }
}

} // namespace

bool ADMServiceURIParser::parseURI(std::string_view uri)
{
    uri_ = uri;
    return parse();
}

bool ADMServiceURIParser::parse()
{
    auto contents = readUri(uri_);
    if (contents.verdict != UriVerdict::read)
        logRefusal(contents, uri_);
    components_ = std::move(contents.components);
    return contents.verdict == UriVerdict::read;
}

bool ADMServiceURIParser::isStandardURI() const
{
    const auto scheme = schemeOfUrl(uri_);
    if (scheme && isTransportScheme(*scheme))
        return true;
    const auto* const type = components_[kConnectionTypeProp].asString();
    return !uri_.empty() && type && knownConnectionTypes().contains(*type);
}

const std::set<std::string, std::less<>>& ADMServiceURIParser::knownConnectionTypes()
{
    return transportConnectionTypes();
}

bool ADMServiceURIParser::parseUSB()
{
    return addedBy(readUsbUri, uri_, components_);
}

bool ADMServiceURIParser::parseSocket()
{
    return addedBy(readSocketUri, uri_, components_);
}

bool ADMServiceURIParser::parseMDNS()
{
    return addedBy(readBonjourUri, uri_, components_);
}

bool ADMServiceURIParser::parseBluetooth()
{
    return addedBy(readBluetoothUri, uri_, components_);
}

bool ADMServiceURIParser::parseQLIP()
{
    return addedBy(readQlipUri, uri_, components_);
}

bool ADMServiceURIParser::parseLegacyQLVastel()
{
    return addedBy(readVastelUri, uri_, components_);
}

bool ADMServiceURIParser::parseUniversalURI(const dmf::Url& url)
{
    const auto found = url.host() == kDMUniversalURIToken ? readUniversalPath(url.path()) : std::nullopt;
    if (found)
        components_.merge(*found);
    return found.has_value();
}

void ADMServiceURIParser::parseQuery(std::string_view query, dmf::Dictionary& container) const
{
    const auto found = vendorAndModelIn(query);
    if (found.model)
        container.set(kModelNameProp, *found.model);
    if (found.vendor)
        container.set(kVendorNameProp, *found.vendor);
}
