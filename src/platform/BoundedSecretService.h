#pragma once

#include <libsecret/secret.h>

#include "platform/BoundedWork.h"
#include "platform/GlibOwners.h"
#include "platform/MessageBus.h"

namespace dmf::internal {

/// libsecret's client of the Secret Service for one piece of work. Its own one goes over the process's shared session
/// bus, which stays the one that was there first, ends a process whose bus goes away, and is the host's affair; this
/// one goes over the work's connection, and its prompts are the work's. Nothing and an error when the bus fails; where
/// nobody offers the service the first call fails. Blocks until the work is late. Bus and work must outlive the client.
[[nodiscard]] Owned<SecretService> openSecretService(MessageBus& bus, BoundedWork& work, GError** error);

} // namespace dmf::internal
