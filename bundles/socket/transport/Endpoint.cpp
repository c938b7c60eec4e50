#include "Endpoint.h"

#include <netdb.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>

#include <dmf/DMKeys.h>

#include "NameLookup.h"

namespace dmf::socket {

namespace {
/// How long addresses that are known already wait for those of the name.
constexpr Clock::duration kNameHeadStart = std::chrono::seconds(1);

std::optional<std::uint16_t> portFrom(const Value& value)
{
    std::uint64_t port = 0;
    if (const auto* const number = value.asNumber()) {
        port = number->uint64Value();
    } else if (const auto* const text = value.asString()) {
        const auto [end, problem] = std::from_chars(text->data(), text->data() + text->size(), port);
        if (problem != std::errc() || end != text->data() + text->size())
            return std::nullopt;
    }
    if (port == 0 || port > 0xFFFF)
        return std::nullopt;
    return static_cast<std::uint16_t>(port);
}

void addAddress(std::vector<std::string>& addresses, const Value& value)
{
    auto text = value.string();
    if (!text || text->empty())
        return;
    // In a URI the sign before an IPv6 zone is escaped, and some writers leave it so.
    if (const auto zone = text->find("%25"); zone != std::string::npos)
        text->erase(zone + 1, 2);
    if (std::find(addresses.begin(), addresses.end(), *text) == addresses.end())
        addresses.push_back(std::move(*text));
}

void addUnlessThere(std::vector<Address>& list, const Address& added)
{
    if (std::find(list.begin(), list.end(), added) == list.end())
        list.push_back(added);
}

/// The family that stands first keeps its place and the families take turns.
std::vector<Address> interleaved(const std::vector<Address>& addresses)
{
    std::vector<Address> first, second, result;
    for (const auto& address : addresses)
        (address.family() == addresses.front().family() ? first : second).push_back(address);
    for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
        if (i < first.size())
            result.push_back(first[i]);
        if (i < second.size())
            result.push_back(second[i]);
    }
    return result;
}
} // namespace

std::optional<Endpoint> Endpoint::fromParameters(const Dictionary& parameters)
{
    Endpoint endpoint;
    endpoint.hostName = parameters.string(kHostNameParam).value_or("");
    addAddress(endpoint.addresses, parameters[kIPAddressParam]);
    if (const auto* const all = parameters[kAllIPAddressesParam].asArray())
        for (const auto& address : *all)
            addAddress(endpoint.addresses, address);
    if (endpoint.hostName.empty() && endpoint.addresses.empty())
        return std::nullopt;
    if (const auto* const given = parameters.find(kIPPortParam)) {
        const auto port = portFrom(*given);
        if (!port)
            return std::nullopt;
        endpoint.port = *port;
    }
    return endpoint;
}

std::string Address::text() const
{
    char host[NI_MAXHOST];
    const auto* const address = reinterpret_cast<const sockaddr*>(&storage);
    if (::getnameinfo(address, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0)
        return {};
    return host;
}

bool operator==(const Address& left, const Address& right) noexcept
{
    return left.length == right.length && std::memcmp(&left.storage, &right.storage, left.length) == 0;
}

NameQuestion systemNames()
{
    return &lookUpName;
}

Outcome findAddresses(const Endpoint& endpoint, Clock::time_point deadline, const CancelQuestion& isCancelled,
                      std::vector<Address>& found, const NameQuestion& askForName)
{
    std::vector<Address> known;
    for (const auto& text : endpoint.addresses)
        for (const auto& address : numericAddresses(text, endpoint.port))
            addUnlessThere(known, address);

    std::vector<Address> addresses;
    Outcome outcome = Outcome::refused;
    if (!endpoint.hostName.empty()) {
        const auto now = Clock::now();
        const auto limit = known.empty() ? deadline : now + std::min(kNameHeadStart, (deadline - now) / 2);
        outcome = askForName(endpoint.hostName, endpoint.port, limit, isCancelled, addresses);
    }
    if (outcome == Outcome::cancelled)
        return outcome;
    // A name's own come first: a device may have moved since the others were written down.
    for (const auto& address : known)
        addUnlessThere(addresses, address);
    if (addresses.empty())
        return outcome == Outcome::done ? Outcome::refused : outcome;
    found = interleaved(addresses);
    return Outcome::done;
}

} // namespace dmf::socket
