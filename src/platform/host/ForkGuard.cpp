#include "platform/host/ForkGuard.h"

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <new>

namespace dmf::internal {
namespace {

/// What the kernel wipes in every copy of the process: true in the process that made it, false in its copies. A guest
/// installs no handlers for fork.
using Mark = std::atomic<bool>;

constinit std::atomic<Mark*> gMark{nullptr};
constinit Mark gUnguarded{true}; // where the kernel wipes nothing

Mark* makeMark() noexcept
{
    const int before = errno;
    const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    Mark* made = &gUnguarded;
    void* const page = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page != MAP_FAILED && ::madvise(page, size, MADV_WIPEONFORK) == 0)
        made = ::new (page) Mark(true);
    Mark* known = nullptr;
    if (!gMark.compare_exchange_strong(known, made))
        made = known;
    if (page != MAP_FAILED && made != page)
        ::munmap(page, size);
    errno = before;
    return made;
}

} // namespace

bool isForkedCopy() noexcept
{
    Mark* mark = gMark.load(std::memory_order_acquire);
    if (!mark)
        mark = makeMark();
    return !mark->load(std::memory_order_relaxed);
}

} // namespace dmf::internal
