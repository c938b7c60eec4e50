#pragma once

#include "platform/BoundedWork.h"
#include "platform/GlibOwners.h"
#include "platform/MessageBus.h"

namespace dmf::internal {

/// Lets the keyring's program ask the person, and waits for the answer: what the question was about, or nothing when
/// the person refused, the program or the bus ended meanwhile, or the work was late, in which case the question is
/// taken back. The caller of the work is told to allow for the person.
[[nodiscard]] Owned<GVariant> performKeyringPrompt(MessageBus& bus, BoundedWork& work, const char* prompt);

} // namespace dmf::internal
