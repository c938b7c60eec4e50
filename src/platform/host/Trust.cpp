#include "platform/host/Trust.h"

#include <endian.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

using AccessBytes = std::vector<unsigned char>;
/// Gets the extended attribute of that name as getxattr does, whichever way the file is known.
using AttributeReader = std::function<ssize_t(const char* name, void* value, std::size_t size)>;

// The kernel's form of an access list: a version, then entries of tag, permissions and ID, all little-endian.
constexpr const char* kAccessList = "system.posix_acl_access";
constexpr std::uint32_t kAccessListVersion = 2;
constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kEntrySize = 8;
constexpr std::uint16_t kMayWrite = 2;
enum AccessTag : std::uint16_t { namedUser = 0x02, owningGroup = 0x04, namedGroup = 0x08, mask = 0x10 };

} // namespace

bool isTrustedUser(uid_t user) noexcept
{
    return user == 0 || (!Host::current().hasRaisedRights && user == ::geteuid());
}

namespace {

// The group that is a user's alone has the user's own number; any other one may have more members.
bool isTrustedGroup(gid_t group) noexcept
{
    return group == 0 || (!Host::current().hasRaisedRights && group == ::geteuid());
}

std::string systemText(int code)
{
    return std::generic_category().message(code);
}

struct AccessEntry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
};

std::optional<std::vector<AccessEntry>> parseAccessList(const AccessBytes& bytes)
{
    std::uint32_t version = 0;
    if (bytes.size() < kHeaderSize || (bytes.size() - kHeaderSize) % kEntrySize != 0)
        return std::nullopt;
    std::memcpy(&version, bytes.data(), sizeof version);
    if (le32toh(version) != kAccessListVersion)
        return std::nullopt;
    std::vector<AccessEntry> entries;
    for (std::size_t at = kHeaderSize; at < bytes.size(); at += kEntrySize) {
        AccessEntry entry{};
        std::memcpy(&entry.tag, bytes.data() + at, 2);
        std::memcpy(&entry.permissions, bytes.data() + at + 2, 2);
        std::memcpy(&entry.id, bytes.data() + at + 4, 4);
        entries.push_back({le16toh(entry.tag), le16toh(entry.permissions), le32toh(entry.id)});
    }
    return entries;
}

std::string reasonAgainstGroup(gid_t group, const std::string& name)
{
    return isTrustedGroup(group) ? std::string()
                                 : name + " can be written by another group (" + std::to_string(group) + ")";
}

// With an access list the mode's group bits are its mask, which says what the list grants at most, not to whom.
std::string reasonInAccessList(const std::vector<AccessEntry>& entries, gid_t group, const std::string& name)
{
    std::uint16_t most = kMayWrite;
    for (const AccessEntry& entry : entries) {
        if (entry.tag == AccessTag::mask)
            most = entry.permissions;
    }
    std::string reason;
    for (const AccessEntry& entry : entries) {
        if ((entry.permissions & most & kMayWrite) == 0)
            continue;
        if (entry.tag == AccessTag::namedUser && !isTrustedUser(entry.id))
            reason = name + " can be written by another user (" + std::to_string(entry.id) + "), says its access list";
        else if (entry.tag == AccessTag::owningGroup)
            reason = reasonAgainstGroup(group, name);
        else if (entry.tag == AccessTag::namedGroup && !isTrustedGroup(entry.id))
            reason = name + " can be written by another group (" + std::to_string(entry.id) + "), says its access list";
        if (!reason.empty())
            return reason;
    }
    return {};
}

std::string reasonAgainstWriters(const struct stat& status, const AttributeReader& attribute, const std::string& name)
{
    if (status.st_mode & S_IWOTH)
        return name + " can be written by everybody";
    if ((status.st_mode & S_IWGRP) == 0) // the mask of an access list, too: it lets nobody write
        return {};
    AccessBytes bytes(64 * 1024); // the most that an attribute holds
    const ssize_t size = attribute(kAccessList, bytes.data(), bytes.size());
    if (size < 0 && (errno == ENODATA || errno == ENOTSUP || errno == ENOSYS)) // it has none
        return reasonAgainstGroup(status.st_gid, name);
    if (size < 0)
        return name + " has an access list that cannot be read: " + systemText(errno);
    bytes.resize(static_cast<std::size_t>(size));
    const auto entries = parseAccessList(bytes);
    return entries ? reasonInAccessList(*entries, status.st_gid, name) : name + " has a malformed access list";
}

std::string reasonAgainstOwner(const struct stat& status, const std::string& name)
{
    return isTrustedUser(status.st_uid) ? std::string()
                                        : name + " belongs to another user (" + std::to_string(status.st_uid) + ")";
}

AttributeReader attributeAt(const std::string& path)
{
    return [&path](const char* name, void* value, std::size_t size) {
        return ::getxattr(path.c_str(), name, value, size);
    };
}

std::string reasonAgainst(const struct stat& status, const AttributeReader& attribute, const std::string& name)
{
    auto reason = reasonAgainstOwner(status, name);
    return reason.empty() ? reasonAgainstWriters(status, attribute, name) : reason;
}

std::string reasonAgainstFolderOnTheWay(const std::string& folder)
{
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0)
        return folder + ": " + systemText(errno);
    if (!S_ISDIR(status.st_mode))
        return folder + " is not a folder any more";
    if (auto reason = reasonAgainstOwner(status, folder); !reason.empty())
        return reason;
    return status.st_mode & S_ISVTX ? std::string() : reasonAgainstWriters(status, attributeAt(folder), folder);
}

bool isOrHolds(std::string_view folder, std::string_view path)
{
    return folder == "/" || (path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/'));
}

} // namespace

std::string reasonNotToTrust(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return path + ": " + systemText(errno);
    return reasonAgainst(status, attributeAt(path), path);
}

std::string reasonNotToTrust(int descriptor, const std::string& name)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return name + ": " + systemText(errno);
    const auto attribute = [descriptor](const char* key, void* value, std::size_t size) {
        return ::fgetxattr(descriptor, key, value, size);
    };
    return reasonAgainst(status, attribute, name);
}

std::string reasonNotToTrustWayTo(const std::string& path, const std::string& known)
{
    for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash == 0 ? 1 : slash);
        if (!known.empty() && isOrHolds(folder, known))
            continue;
        if (auto reason = reasonAgainstFolderOnTheWay(folder); !reason.empty())
            return reason;
    }
    return {};
}

} // namespace dmf::internal
