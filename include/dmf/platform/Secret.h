#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include <dmf/platform/Export.h>

namespace dmf {

/// A text that is overwritten with zeros before its memory is let go: a password, a pass phrase. It is moved, never
/// copied, so that no second place has to be remembered. It has no description; whoever copies `view` into a string of
/// their own wipes that themselves. Reentrant.
class DMF_EXPORT Secret {
public:
    Secret() noexcept = default;
    /// Copies the text; wiping the source is the caller's affair.
    explicit Secret(std::string_view text);

    [[nodiscard]] bool empty() const noexcept { return view().empty(); }
    /// The text; valid until this object is moved from, assigned to or destroyed.
    [[nodiscard]] std::string_view view() const noexcept
    {
        return bytes_ ? std::string_view(bytes_.get(), bytes_.get_deleter().size) : std::string_view();
    }

    /// Overwrites memory with zeros, in a way that the compiler does not leave out.
    static void wipe(void* memory, std::size_t size) noexcept;

private:
    struct Wiping {
        // No default value at the member: the class around it could not be made without one while it is incomplete.
        std::size_t size;
        Wiping() noexcept : size(0) {}
        explicit Wiping(std::size_t count) noexcept : size(count) {}
        void operator()(char* bytes) const noexcept;
    };
    std::unique_ptr<char[], Wiping> bytes_;
};

} // namespace dmf
