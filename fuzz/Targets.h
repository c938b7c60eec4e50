#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace dmf::fuzz {

/// A parser under test: it takes any bytes. What it throws, or a broken promise, is a fault.
struct Target {
    std::string_view name;
    void (*run)(std::span<const std::uint8_t> bytes);
};
[[nodiscard]] std::span<const Target> targets();

} // namespace dmf::fuzz
