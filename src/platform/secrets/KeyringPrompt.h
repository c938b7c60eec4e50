#pragma once

#include <string>

#include "platform/secrets/MessageBus.h"

namespace dmf::internal {

/// Has the keyring's program ask the person what the prompt is about, and waits until it has been answered; false when
/// it was refused, when the program has nowhere to ask, and when the work is late: then the question is taken back.
[[nodiscard]] bool performKeyringPrompt(MessageBus& bus, BoundedWork& work, const std::string& prompt);

} // namespace dmf::internal
