#pragma once

#include <span>
#include <string>
#include <string_view>

#include "support/HostFixture.h"

namespace endurance {

/// How a piece of work ended: as it should, with an ordinary failure, or not at all within its bound.
enum class Outcome { done, refused, silent };
[[nodiscard]] std::string_view nameOf(Outcome outcome);

/// The machine that work is done on, and a device on its network.
struct Stage {
    explicit Stage(std::string device) : deviceUri(std::move(device))
    {
        machine.writeFile("/var/log/qlio/DMFLogLevel", "warnings");
    }
    HostFixture machine;
    const std::string deviceUri;
};

/// What a program does with the library, from the first call to the last, by a name for tables.
struct Work {
    std::string_view name;
    Outcome (*run)(Stage& stage);
};
[[nodiscard]] std::span<const Work> works();

/// Starts a device that sends back what it receives, as a process that ends with this one; gives its URI. To be called
/// before the library is used.
[[nodiscard]] std::string startEchoDevice();

} // namespace endurance
