#include "Asker.h"

#include <chrono>

#include "device/ClaimedInterface.h"

namespace dmf::usb {

namespace {
constexpr std::chrono::seconds kAnswerLimit{1};
}

void answerQuestions(WatchState& state)
{
    while (const auto question = state.nextQuestion()) {
        const ClaimedInterface claimed(question->node, question->interface.number, kAnswerLimit);
        state.answer({question->sighting,
                      claimed.isOpen()
                          ? readDeviceId(claimed.transfer(), question->configurationIndex, question->interface)
                          : std::nullopt});
    }
}

} // namespace dmf::usb
