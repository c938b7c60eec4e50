#pragma once

#include <span>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

/// Describes an interface at run time: its name, the interfaces that it extends and the operations that it requires.
/// Constant data; every interface hands out its own by a static `protocol()`. Thread-safe.
class DMF_EXPORT Protocol {
public:
    constexpr Protocol(std::string_view name, std::span<const Protocol* const> adopted,
                       std::span<const std::string_view> operations) noexcept
        : name_(name), adopted_(adopted), operations_(operations)
    {
    }

    [[nodiscard]] constexpr std::string_view name() const noexcept { return name_; }
    [[nodiscard]] constexpr std::span<const Protocol* const> adopted() const noexcept { return adopted_; }
    /// The names of the operations that this interface itself requires, without those of the adopted interfaces.
    [[nodiscard]] constexpr std::span<const std::string_view> operations() const noexcept { return operations_; }

    /// Whether this is `other` (by name) or extends it, directly or not.
    [[nodiscard]] bool conformsTo(const Protocol& other) const noexcept;

private:
    std::string_view name_;
    std::span<const Protocol* const> adopted_;
    std::span<const std::string_view> operations_;
};

} // namespace dmf
