#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Url.h>

class ADMServiceURIImp;

/// Makes the URIs by which device services are named. A missing scheme asks for the standard form of the transport, a
/// scheme for the universal form with it: "SCHEME://QLDMF/v=1&connectionType=TYPE&KEY=VALUE&...". Every factory gives
/// an empty result when what it was given does not make a URL. Thread-safe.
///
/// Only the system version decides how a URI ends ("/?bidi" from 10.3.1 on) and how a Bonjour one begins ("dnssd" from
/// 10.6 on, "mdns" before); it is looked at afresh for every URI.
class DMF_EXPORT ADMServiceURI {
public:
    using Scheme = std::optional<std::string_view>;

    /// `address` is IPv6 when it holds a colon, its zone being set off by "%".
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> networkServiceURIWithIPAddress(std::string_view address,
                                                                                          Scheme scheme = {});
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> networkServiceURIWithHostName(std::string_view hostName,
                                                                                         Scheme scheme = {});
    /// A missing type is "_pdl-datastream._tcp.", a missing domain "local."; both are written as given, so both need
    /// their trailing dot.
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp>
    bonjourServiceURIWithServiceName(std::string_view serviceName, std::optional<std::string_view> serviceType,
                                     std::optional<std::string_view> domain, Scheme scheme = {});
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> USBServiceURIWithProductName(std::string_view productName,
                                                                                        std::string_view vendor,
                                                                                        std::string_view serialNumber,
                                                                                        Scheme scheme = {});

    virtual ~ADMServiceURI();
    /// Both are left to subclasses and throw dmf::UnrecognizedOperation here.
    [[nodiscard]] virtual const dmf::Url& URLRepresentation() const;
    [[nodiscard]] virtual std::string stringRepresentation() const;
};

/// A device URI: a URL with ways to build it. Immutable, thread-safe. See ADMServiceURI for the forms.
class DMF_EXPORT ADMServiceURIImp final : public dmf::Url {
public:
    using Scheme = ADMServiceURI::Scheme;

    /// Empty for a missing string and for one that is no URL.
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> initWithString(std::optional<std::string_view> string);
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> initWithNetworkIPAddress(std::string_view address,
                                                                                    Scheme scheme);
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> initWithNetworkHostName(std::string_view hostName,
                                                                                   Scheme scheme);
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp>
    initWithBonjourServiceURIWithServiceName(std::string_view serviceName, std::optional<std::string_view> serviceType,
                                             std::optional<std::string_view> domain, Scheme scheme);
    [[nodiscard]] static std::shared_ptr<ADMServiceURIImp> initWithUSBProductName(std::string_view productName,
                                                                                  std::string_view vendor,
                                                                                  std::string_view serialNumber,
                                                                                  Scheme scheme);

    [[nodiscard]] const dmf::Url& URLRepresentation() const noexcept { return *this; }
    [[nodiscard]] const std::string& stringRepresentation() const noexcept { return absoluteString(); }

private:
    explicit ADMServiceURIImp(dmf::Url url);
};
