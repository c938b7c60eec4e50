#pragma once

#include <ctime>
#include <memory>
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

enum class LockFileRemoval {
    removed,
    superseded, ///< the file that was seen is gone; another may be in its place
    busy,       ///< the advisory lock cannot be had: somebody holds it, to remove the file most likely
    refused,    ///< a folder, or somebody else's file where only its owner may remove it
};

/// One taking of a lock file: the path, the file that was made there and its descriptor.
///
///     take: the file is made ──► held ──giveBack: removed, or found broken by somebody──► done with
///                                 │ ▲
///                                 └─┘ renew; giveBack that throws, since the file stays
///
/// The file outlives this object, unless it was given back. Nobody removes a file that somebody made meanwhile: every
/// removal holds an advisory lock on the very file or, where that cannot be opened (a link, say), on its folder, and
/// looks again before it removes. Where the file system knows no advisory locks, the look comes right before the
/// removal. Reentrant; the static functions are thread-safe.
class LockFile {
public:
    /// Whether the file tells its age by a clock that nobody sets: a line with the boot and the time on the forward
    /// clock, good while the file has the date at which it was written.
    enum class Mark { none, forwardClock };

    /// Makes the file, readable and writable by all whatever the umask; empty when there is something already. A
    /// relative path means the folder that the process is in now, then and later. Throws std::system_error for every
    /// other failure.
    [[nodiscard]] static std::unique_ptr<LockFile> take(const std::string& path, Mark mark);
    ~LockFile();
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    /// When it was taken, or renewed last.
    [[nodiscard]] Date date() const { return identity_.date(); }
    /// Whether the file at the path is this one, with the date that it was given here.
    [[nodiscard]] bool isUntouched() const;
    /// Makes the file as young as one that is taken now; false when somebody broke it.
    [[nodiscard]] bool renew();
    /// Removes the file, whatever its date; false when somebody broke it. Waits up to a tenth of a second for somebody
    /// who is just looking at it. Throws std::system_error when the file could not be removed and stays.
    bool giveBack();

    /// What is at `path`; nothing when there is nothing. A link is not followed. Throws std::system_error when that
    /// cannot be found out.
    [[nodiscard]] static std::optional<LockFileIdentity> seenAt(const std::string& path);
    /// For how many seconds the file that was seen has been there: by the forward clock where it bears the mark of this
    /// boot, otherwise by its date.
    [[nodiscard]] static double age(const std::string& path, const LockFileIdentity& seen);
    /// Removes what is at `path` if it still is what was seen. Never waits. Throws std::system_error when it cannot be
    /// found out what is there.
    static LockFileRemoval remove(const std::string& path, const LockFileIdentity& seen);
    /// Removes what is at `path` now, whoever made it; does nothing when there is nothing. Waits and throws as
    /// `giveBack`.
    static void breakAt(const std::string& path);
    /// When the file was made: its birth time where the file system tells it, else its last modification.
    [[nodiscard]] static std::optional<Date> birth(const std::string& path);

private:
    LockFile(std::string path, int descriptor, Mark mark);
    void writeMark();

    const std::string path_; // absolute
    const int descriptor_;   // keeps the inode number from going to another file
    const Mark mark_;
    LockFileIdentity identity_;
};

} // namespace dmf::internal
