#pragma once

#include <ctime>
#include <optional>
#include <string>

#include <sys/types.h>

#include <dmf/platform/Date.h>

namespace dmf::internal {

/// One lock file as it was seen: which file, and since when. A file that takes its place differs, even in the same
/// second.
struct LockFileIdentity {
    ino_t inode = 0;
    timespec modified{};
    [[nodiscard]] Date date() const;
    friend bool operator==(const LockFileIdentity& left, const LockFileIdentity& right) noexcept
    {
        return left.inode == right.inode && left.modified.tv_sec == right.modified.tv_sec &&
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

/// Removes the file at `path` if it still is the one that was seen. Two processes that remove at once, or one that
/// removes while its holder gives it back, never remove a file that somebody made meanwhile: every removal holds an
/// advisory lock on the very file. Never waits. Throws std::system_error when the file cannot be removed.
enum class LockFileRemoval {
    removed,
    superseded, ///< the file that was seen is gone; another may be in its place
    busy,       ///< somebody else holds the advisory lock, to remove the file most likely
};
LockFileRemoval removeLockFile(const std::string& path, const LockFileIdentity& seen);

/// Removes the file that the caller made and still holds, waiting up to a tenth of a second for somebody who is just
/// looking at it. Throws std::system_error when the file cannot be removed.
void giveBackLockFile(const std::string& path, const LockFileIdentity& held);

/// When the file was made: its birth time where the file system tells it, else its last modification.
[[nodiscard]] std::optional<Date> lockFileBirth(const std::string& path);

} // namespace dmf::internal
