#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Shared.h>

namespace dmf {

/// A run of bytes. Copies share their storage until one of them is changed. Reentrant.
class DMF_EXPORT Data {
public:
    Data() = default;
    explicit Data(std::span<const std::uint8_t> bytes);
    explicit Data(std::vector<std::uint8_t> bytes);

    /// The bytes of `text` as they stand, without a terminator.
    [[nodiscard]] static Data fromText(std::string_view text);

    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }

    /// The bytes; valid until this object is changed or destroyed.
    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept;
    /// The same bytes seen as characters; no check of their encoding.
    [[nodiscard]] std::string_view text() const noexcept;

    void append(std::span<const std::uint8_t> bytes);
    /// Replaces the content, in the same memory where no other object shares it. `bytes` must not be this object's own.
    void assign(std::span<const std::uint8_t> bytes);
    void append(const Data& other);
    void clear() { *this = Data(); }

    /// Overwrites the memory with zeros before letting it go, where no other object shares it. For secrets.
    void wipe() noexcept;

    /// "<48656c6c 6f>": lower-case hexadecimal in groups of four bytes, cut after 64 bytes.
    [[nodiscard]] std::string description() const;

    friend DMF_EXPORT bool operator==(const Data& left, const Data& right) noexcept;

private:
    Shared<std::vector<std::uint8_t>> storage_;
};

} // namespace dmf
