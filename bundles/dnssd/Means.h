#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace dmf::dnssd {

/// Whether the process may open as many descriptors as a connection to the bus takes, with those that other threads may
/// open meanwhile. GLib ends the program where it gets none for its contexts and its wake-ups.
[[nodiscard]] inline bool canOpenDescriptors() noexcept
{
    std::array<int, 16> opened{};
    for (int& descriptor : opened)
        descriptor = ::open("/", O_PATH | O_CLOEXEC);
    const bool all = std::all_of(opened.begin(), opened.end(), [](int it) { return it >= 0; });
    for (const int descriptor : opened) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
    return all;
}

} // namespace dmf::dnssd
