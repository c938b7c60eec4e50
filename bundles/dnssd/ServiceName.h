#pragma once

#include <optional>
#include <string>

#include <dmf/platform/Value.h>

namespace dmf::dnssd {

/// What names one DNS-SD service: "Office Printer", "_ipp._tcp", "local"; type and domain without a dot at their end.
struct ServiceName {
    std::string name;
    std::string type;
    std::string domain;

    /// Reads the Bonjour parameters of a service. When type or domain is missing, both are taken to be
    /// "_pdl-datastream._tcp" and "local", as where URIs are made. Nothing without a name.
    [[nodiscard]] static std::optional<ServiceName> fromParameters(const Dictionary& parameters);

    /// The service's URI. Nothing when no URI leads back to the same service (the form has room for one domain label),
    /// and for a name with control characters, which is none: devices do not offer such, and nobody could show it.
    [[nodiscard]] std::optional<std::string> uri() const;

    /// The same for names that stand for one service: DNS does not heed the case of ASCII letters.
    [[nodiscard]] std::string key() const;

    friend bool operator==(const ServiceName&, const ServiceName&) = default;
};

} // namespace dmf::dnssd
