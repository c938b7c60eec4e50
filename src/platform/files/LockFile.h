#pragma once

#include <ctime>
#include <optional>
#include <string>

#include <sys/types.h>

#include <dmf/platform/Date.h>

namespace dmf::internal {

/// One lock file as it was seen: which file, and since when. A file that takes its place differs, even in the same
/// second and though it may be given the same inode number.
struct LockFileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    timespec modified{};
    [[nodiscard]] Date date() const;
    /// Equality whatever the dates; it tells files apart while one of the two is open, which keeps its inode number.
    [[nodiscard]] bool isSameFile(const LockFileIdentity& other) const noexcept
    {
        return device == other.device && inode == other.inode;
    }
    friend bool operator==(const LockFileIdentity& left, const LockFileIdentity& right) noexcept
    {
        return left.isSameFile(right) && left.modified.tv_sec == right.modified.tv_sec &&
               left.modified.tv_nsec == right.modified.tv_nsec;
    }
};

/// The file at `path`; nothing when there is none. A link is not followed. Throws std::system_error when that cannot
/// be found out.
[[nodiscard]] std::optional<LockFileIdentity> lockFileAt(const std::string& path);

/// Makes the lock file, readable and writable by all whatever the umask; nothing when there is something already.
/// Throws std::system_error for every other failure. Gives the open descriptor and what was made.
struct MadeLockFile {
    int descriptor;
    LockFileIdentity identity;
};
[[nodiscard]] std::optional<MadeLockFile> makeLockFile(const std::string& path);

/// Removes what is at `path` if it still is what was seen. Two processes that remove at once, or one that removes while
/// its holder gives it back, never remove a file that somebody made meanwhile: every removal holds an advisory lock on
/// the very file or, for a link, which cannot be locked, on its folder. Never waits. Throws std::system_error when it
/// cannot be found out what is there.
enum class LockFileRemoval {
    removed,
    superseded, ///< the file that was seen is gone; another may be in its place
    busy,       ///< the advisory lock cannot be had: somebody holds it, to remove the file most likely
    refused,    ///< a folder, or somebody else's file where only its owner may remove it
};
LockFileRemoval removeLockFile(const std::string& path, const LockFileIdentity& seen);

/// Removes the file that the caller made and still holds; false when somebody broke it. Waits up to a tenth of a second
/// for somebody who is just looking at it. Throws std::system_error when the file could not be removed and stays.
[[nodiscard]] bool giveBackLockFile(const std::string& path, const LockFileIdentity& held);
/// The same for a caller who kept the file's descriptor, so that its date does not matter.
bool giveBackLockFile(const std::string& path, int descriptor);

/// When the file was made: its birth time where the file system tells it, else its last modification.
[[nodiscard]] std::optional<Date> lockFileBirth(const std::string& path);

} // namespace dmf::internal
