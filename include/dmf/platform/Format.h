#pragma once

#include <concepts>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

namespace internal {
class Formatter;
}

/// One argument of a format string, by reference: building it neither copies nor describes anything, so that a
/// message which is filtered out costs next to nothing. Must not outlive the call that it is an argument of.
class DMF_EXPORT FormatArgument {
public:
    FormatArgument(std::string_view text) noexcept : kind_(Kind::text), text_(text) {}
    FormatArgument(const std::string& text) noexcept : FormatArgument(std::string_view(text)) {}
    FormatArgument(const char* text) noexcept : kind_(text ? Kind::text : Kind::missing)
    {
        if (text)
            text_ = text;
    }
    FormatArgument(const std::optional<std::string>& text) noexcept : kind_(text ? Kind::text : Kind::missing)
    {
        if (text)
            text_ = *text;
    }
    constexpr FormatArgument(std::nullptr_t) noexcept {}
    FormatArgument(std::signed_integral auto value) noexcept : kind_(Kind::signedInteger), signed_(value) {}
    FormatArgument(std::unsigned_integral auto value) noexcept : kind_(Kind::unsignedInteger), unsigned_(value) {}
    FormatArgument(std::floating_point auto value) noexcept : kind_(Kind::real), real_(value) {}
    FormatArgument(const std::exception& error) noexcept;
    /// Anything with a `std::string description() const`.
    template <class T>
    requires requires(const T& object)
    {
        {
            object.description()
            } -> std::convertible_to<std::string>;
    }
    FormatArgument(const T& object) noexcept
        : kind_(Kind::described), described_{&object, [](const void* it) -> std::string {
                                                 return static_cast<const T*>(it)->description();
                                             }}
    {
    }
    /// For "%p".
    FormatArgument(const void* pointer) noexcept : kind_(Kind::pointer), pointer_(pointer) {}
    template <class T>
    FormatArgument(const std::shared_ptr<T>& object) noexcept : FormatArgument(static_cast<const void*>(object.get()))
    {
    }

private:
    friend class internal::Formatter;
    struct Described {
        const void* object;
        std::string (*describe)(const void*);
    };
    enum class Kind : std::uint8_t { missing, text, signedInteger, unsignedInteger, real, pointer, described };

    Kind kind_ = Kind::missing;
    union {
        std::int64_t signed_ = 0;
        std::uint64_t unsigned_;
        double real_;
        const void* pointer_;
        std::string_view text_;
        Described described_;
    };
};

/// Puts the arguments into the placeholders of `format`: "%@" (any argument as text), "%s", "%d", "%i", "%u", "%x",
/// "%X", "%o", "%c", "%f", "%e", "%g", "%p" with the flags, width and precision of printf, length letters being
/// accepted and ignored, and "%%". A missing object or a placeholder without an argument gives "(null)"; an argument of
/// another kind than its placeholder asks for is shown as "%@" would. Widths and precisions of text count characters;
/// a negative number is shown by "%u", "%x", "%X" and "%o" in 32 bits where it fits them, else in 64. What is no
/// placeholder stands for itself. Never by the host's locale. Thread-safe.
[[nodiscard]] DMF_EXPORT std::string formatArguments(std::string_view format,
                                                     std::span<const FormatArgument> arguments);

template <class... Arguments>
[[nodiscard]] std::string formatted(std::string_view format, const Arguments&... arguments)
{
    if constexpr (sizeof...(arguments) == 0) {
        return formatArguments(format, {});
    } else {
        const FormatArgument list[] = {FormatArgument(arguments)...};
        return formatArguments(format, list);
    }
}

} // namespace dmf
