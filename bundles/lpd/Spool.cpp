#include "Spool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace dmf::lpd {

namespace {

/// A file without a name where files may be large; in memory where no folder can have one.
socket::FileDescriptor unnamedFile()
{
    for (const char* const folder : {"/var/tmp", "/tmp"}) {
        socket::FileDescriptor file(::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
        if (file)
            return file;
    }
    return socket::FileDescriptor(::memfd_create("dmf-lpd", MFD_CLOEXEC));
}

} // namespace

bool Spool::append(std::span<const std::uint8_t> bytes)
{
    if (!file_)
        file_ = unnamedFile();
    while (file_ && !bytes.empty()) {
        const auto written = ::pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(size_));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        size_ += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return static_cast<bool>(file_);
}

std::int64_t Spool::read(std::uint64_t place, std::span<std::uint8_t> space) const
{
    if (!file_)
        return 0;
    for (;;) {
        const auto got = ::pread(file_.get(), space.data(), space.size(), static_cast<off_t>(place));
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

} // namespace dmf::lpd
