#pragma once

#include <cstdint>
#include <span>

#include "transport/FileDescriptor.h"

namespace dmf::lpd {

/// A document whose length is not known before its end, in a file that has no name: it is gone with its last
/// descriptor, whatever becomes of the process. Reentrant.
class Spool {
public:
    /// False when the bytes cannot be kept: no folder for temporary files, a full disk.
    [[nodiscard]] bool append(std::span<const std::uint8_t> bytes);
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    /// Bytes from that place on, as many as there are room; 0 at the end, -1 when they cannot be read.
    [[nodiscard]] std::int64_t read(std::uint64_t place, std::span<std::uint8_t> space) const;

private:
    socket::FileDescriptor file_;
    std::uint64_t size_ = 0;
};

} // namespace dmf::lpd
