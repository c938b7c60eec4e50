#pragma once

#include "Endpoint.h"
#include "FileDescriptor.h"

namespace dmf::socket {

struct Connected {
    Outcome outcome = Outcome::refused;
    FileDescriptor socket; ///< non-blocking and close-on-exec; of `done`
    std::string address;   ///< the one that answered first
};

/// Connects to whichever address of the endpoint answers first. Every 250 ms, and at once after a refusal, the next
/// address is tried beside those under way. Ends at the deadline at the latest.
[[nodiscard]] Connected connectTo(const Endpoint& endpoint, Clock::time_point deadline,
                                  const CancelQuestion& isCancelled);

} // namespace dmf::socket
