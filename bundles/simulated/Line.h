#pragma once

#include <deque>
#include <optional>
#include <span>

#include "Script.h"

namespace dmf::simulated {

/// One connection to a simulated device, in memory: takes bytes in and gives answers out as the script says. Never
/// waits. Reentrant.
class Line {
public:
    enum class Result { moved, nothingYet, peerEnded, broken };

    explicit Line(const Script& script);

    /// Gives bytes of the answers that are due.
    [[nodiscard]] Result read(std::span<std::uint8_t> space, std::uint32_t& count);
    /// Takes at most one packet.
    [[nodiscard]] Result write(std::span<const std::uint8_t> bytes, std::uint32_t& count);
    /// Says that what was written last is one whole request, which the device answers.
    void endRequest();

    /// When a read that had nothing yet is worth trying again; nothing when only a write can change that.
    [[nodiscard]] std::optional<Clock::time_point> nextRead() const;
    /// The same for a write.
    [[nodiscard]] std::optional<Clock::time_point> nextWrite() const;

private:
    struct Answer {
        Data bytes;
        Clock::time_point due;
    };

    void addAnswer(Data bytes, Clock::time_point due);
    [[nodiscard]] bool isBroken() const { return script_.breakAfter && taken_ >= *script_.breakAfter; }
    [[nodiscard]] bool hasEnded() const { return script_.endAfter && given_ >= *script_.endAfter; }

    const Script& script_;
    std::deque<Answer> answers_;
    std::size_t givenOfFirst_ = 0;
    std::uint64_t given_ = 0;
    std::uint64_t taken_ = 0;
    Data request_;
    Clock::time_point readyToTake_ = Clock::now();
};

} // namespace dmf::simulated
