#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include <dmf/platform/Value.h>

namespace dmf::simulated {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// How a simulated device behaves, as the pairs of its URI tell. README.md describes each pair.
struct Script {
    bool isReachable = true;
    std::uint32_t foundAfter = 0;
    Milliseconds searchDelay{0};

    Milliseconds openDelay{0};
    std::int16_t openStatus = 0;
    std::uint32_t packetSize = 4096;

    Data greeting;
    Data answer;
    bool echoes = false;
    Milliseconds answerDelay{0};
    std::optional<std::uint64_t> endAfter;
    std::int16_t readStatus = 0;

    bool neverReads = false;
    Milliseconds writeDelay{0};
    std::optional<std::uint64_t> breakAfter;
    std::int16_t writeStatus = 0;

    /// Reads the pairs; those that are unknown or do not make sense are left alone.
    [[nodiscard]] static Script fromParameters(const Dictionary& parameters);
};

} // namespace dmf::simulated
