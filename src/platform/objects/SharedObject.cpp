#include "platform/objects/SharedObject.h"

#include <elf.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <vector>

namespace dmf::internal {
namespace {

using ElfHeader = ElfW(Ehdr);
using ElfSegment = ElfW(Phdr);

constexpr unsigned char kOwnClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char kOwnOrder = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
constexpr const char* kCutShort = "is cut short";
constexpr const char* kNoSharedObject = "is no shared object";

bool readElfAt(int descriptor, std::uint64_t offset, void* to, std::size_t size)
{
    ssize_t count = 0;
    do
        count = ::pread(descriptor, to, size, static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    return count >= 0 && static_cast<std::size_t>(count) == size;
}

bool liesWithin(std::uint64_t size, std::uint64_t offset, std::uint64_t length)
{
    return offset <= size && length <= size - offset;
}

std::string faultOfSegments(int descriptor, const ElfHeader& header, std::uint64_t size)
{
    if (header.e_phentsize != sizeof(ElfSegment) || header.e_phnum == 0)
        return kNoSharedObject;
    const std::size_t length = header.e_phnum * sizeof(ElfSegment);
    std::vector<ElfSegment> segments(header.e_phnum);
    if (!liesWithin(size, header.e_phoff, length) || !readElfAt(descriptor, header.e_phoff, segments.data(), length))
        return kCutShort;
    for (const ElfSegment& segment : segments) {
        if (segment.p_type != PT_NULL && !liesWithin(size, segment.p_offset, segment.p_filesz))
            return kCutShort;
        if (segment.p_type == PT_LOAD && segment.p_filesz > segment.p_memsz)
            return kNoSharedObject;
    }
    return {};
}

} // namespace

std::string faultOfSharedObject(int descriptor)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return "cannot be looked at: " + std::generic_category().message(errno);
    if (!S_ISREG(status.st_mode))
        return "is no regular file";
    ElfHeader header{};
    if (!readElfAt(descriptor, 0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        return kNoSharedObject;
    // Of another form than this program's, so that its numbers mean something else.
    if (header.e_ident[EI_CLASS] != kOwnClass || header.e_ident[EI_DATA] != kOwnOrder)
        return {};
    if (header.e_type != ET_DYN)
        return kNoSharedObject;
    return faultOfSegments(descriptor, header, static_cast<std::uint64_t>(status.st_size));
}

} // namespace dmf::internal
