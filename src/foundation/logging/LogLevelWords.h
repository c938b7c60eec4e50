#pragma once

#include <cstdint>
#include <string_view>

namespace dmf::internal {

/// A level word that is known: its rank, and what a line of that level begins with (empty for none).
struct LogLevelWord {
    std::string_view word;
    std::int32_t rank;
    std::string_view prefix;
};

// Ranks run against severity on purpose: "errors" also lets "warnings" and "info" through, and only that far.
inline constexpr LogLevelWord kLogLevelWords[] = {
    {"nolog", 1, {}},    {"info", 2, "I "},  {"warnings", 3, "W "},
    {"errors", 4, "E "}, {"debug", 5, "D "}, {"debug2", 6, "D "},
};

/// Null for an unknown word.
[[nodiscard]] inline const LogLevelWord* logLevelWord(std::string_view word) noexcept
{
    for (const LogLevelWord& level : kLogLevelWords) {
        if (level.word == word)
            return &level;
    }
    return nullptr;
}

} // namespace dmf::internal
