#pragma once

#include "Endpoint.h"

namespace dmf::socket {

/// The address that the text spells in numbers, with its zone for IPv6; empty when it is none. Never waits.
[[nodiscard]] std::vector<Address> numericAddresses(const std::string& text, std::uint16_t port);

/// The addresses of a host name, in the system's order of preference. `refused` when the name has none.
[[nodiscard]] Outcome lookUpName(const std::string& name, std::uint16_t port, Clock::time_point deadline,
                                 const CancelQuestion& isCancelled, std::vector<Address>& found);

} // namespace dmf::socket
