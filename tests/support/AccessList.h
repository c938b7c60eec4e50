#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <endian.h>
#include <sys/xattr.h>

/// Lets one more user write to a file or folder, as `setfacl -m u:USER:rwx` does; its owner keeps all rights, its group
/// may read. False where the file system keeps no access lists.
inline bool letUserWrite(const std::filesystem::path& path, std::uint32_t user, bool masked = false)
{
    struct {
        std::uint32_t version = htole32(2);
        struct {
            std::uint16_t tag, permissions;
            std::uint32_t id;
        } entries[5];
    } list{};
    const std::uint32_t nobody = 0xFFFFFFFF;
    const std::uint16_t most = masked ? 5 : 7;
    const std::uint32_t plain[5][3] = {
        {0x01, 7, nobody}, {0x02, 7, user}, {0x04, 5, nobody}, {0x10, most, nobody}, {0x20, 5, nobody}};
    for (int i = 0; i < 5; ++i)
        list.entries[i] = {htole16(static_cast<std::uint16_t>(plain[i][0])),
                           htole16(static_cast<std::uint16_t>(plain[i][1])), htole32(plain[i][2])};
    return ::setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) == 0;
}
