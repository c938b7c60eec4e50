#include "platform/host/Reserve.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <latch>
#include <memory>

#include "platform/host/Thread.h"

namespace dmf::internal {

/// Between this answer and the use of it other threads may open some too: a context takes two at most.
bool canOpenDescriptors() noexcept
{
    constexpr std::size_t reserve = 8;

    const int before = errno;
    std::array<int, reserve> opened{};
    for (int& descriptor : opened)
        descriptor = ::open("/", O_PATH | O_CLOEXEC);
    const bool all = std::ranges::all_of(opened, [](int it) { return it >= 0; });
    for (const int descriptor : opened) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
    errno = before;
    return all;
}

/// Two at once: one more than is needed, since others may start some meanwhile.
bool canStartThreads()
{
    const auto bothAsked = std::make_shared<std::latch>(1);
    const auto wait = [bothAsked] { bothAsked->wait(); };
    const bool first = startThread("dmf-reserve", ThreadForm::detached, wait) == 0;
    const bool second = first && startThread("dmf-reserve", ThreadForm::detached, wait) == 0;
    bothAsked->count_down();
    return second;
}

} // namespace dmf::internal
