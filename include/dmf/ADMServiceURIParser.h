#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Url.h>
#include <dmf/platform/Value.h>

/// Reads a device URI of any scheme into its components: the connection type, the names of vendor, model, device and
/// service, and under "params" the connection parameters. Reusable, reentrant.
///
/// The operations for single schemes are steps of `parse`, which chooses among them by scheme; each reads the kept URI,
/// adds to the components and gives false, without a word, for a URI that does not follow the scheme's form.
class DMF_EXPORT ADMServiceURIParser {
public:
    /// A URI longer than this many bytes is refused: none that names a device comes near it.
    static constexpr std::size_t kLongestURI = 65'536;

    /// Keeps the URI; does not parse it.
    explicit ADMServiceURIParser(std::string_view uri = {}) : uri_(uri) {}

    /// Replaces the kept URI and parses it.
    bool parseURI(std::string_view uri);
    /// Parses the kept URI, after forgetting the components of an earlier parse. False for a URI that is no URL, is too
    /// long, does not follow its scheme's form, holds an escaped zero byte, or names a vendor other than the accepted
    /// ones; the components are then not to be used. Says in the log why, except for texts that are no URL at all.
    bool parse();

    /// What the last parse found; empty when there is nothing. A reference to the parser's own: it changes with the
    /// next parse and ends with the parser.
    [[nodiscard]] const dmf::Dictionary& components() const noexcept { return components_; }
    [[nodiscard]] const std::string& uri() const noexcept { return uri_; }
    /// Whether the URI's scheme is that of a transport; or, as the components tell after a parse, the URI is a
    /// universal one of a known connection type.
    [[nodiscard]] bool isStandardURI() const;
    /// The connection types that URIs can lead to. Thread-safe.
    [[nodiscard]] static const std::set<std::string, std::less<>>& knownConnectionTypes();

    bool parseUSB();
    bool parseSocket();
    bool parseMDNS();
    bool parseBluetooth();
    bool parseQLIP();
    bool parseLegacyQLVastel();
    /// "SCHEME://QLDMF/v=1&connectionType=TYPE&KEY=VALUE&...": every pair but the first two becomes a component and a
    /// connection parameter. Values cannot hold "&" or "=", not even escaped.
    bool parseUniversalURI(const dmf::Url& url);
    /// Takes the vendor and the model from "vendor=V&product=P" into `container`.
    void parseQuery(std::string_view query, dmf::Dictionary& container) const;

private:
    std::string uri_;
    dmf::Dictionary components_;
};
