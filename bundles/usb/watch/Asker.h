#pragma once

#include "WatchState.h"

namespace dmf::usb {

/// Asks the devices that questions name, one after the other, until the watch ends. Each has a second to answer.
void answerQuestions(WatchState& state);

} // namespace dmf::usb
