#pragma once

#include "ServiceName.h"
#include "TxtRecord.h"
#include "transport/Endpoint.h"

namespace dmf::dnssd {

/// Where a service is just now, and what it says of itself.
struct Resolved {
    socket::Endpoint endpoint; ///< all addresses of its host, link-local ones with their zone; no host name
    TxtRecord txt;
};

/// Asks the machine's Avahi daemon for the service. Waits until the deadline at most; turns a main context of its own
/// on the calling thread. `refused` when there is no bus, no daemon, or the service does not offer itself.
[[nodiscard]] socket::Outcome resolve(const ServiceName& service, socket::Clock::time_point deadline,
                                      const socket::CancelQuestion& isCancelled, Resolved& resolved);

} // namespace dmf::dnssd
