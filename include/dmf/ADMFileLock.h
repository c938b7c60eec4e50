#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>

namespace dmf::internal {
class LockFile;
}

/// A lock between processes: a file at a path that the processes agree on, there while somebody holds the lock. Any
/// process may break it. Thread-safe. Giving the lock back and breaking it block for up to a tenth of a second, while
/// another process is about to remove the file; nothing else here waits.
class DMF_EXPORT ADMFileLock {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Empty for an empty path, a path where a folder is, and a path in a folder that does not exist. A relative path
    /// is read from the folder that the process is in as the lock is taken, and the file is given back there.
    [[nodiscard]] static std::shared_ptr<ADMFileLock> initWithPath(std::string_view path);
    [[nodiscard]] static std::shared_ptr<ADMFileLock> lockWithPath(std::string_view path) { return initWithPath(path); }

    ADMFileLock(Passkey, std::string path);
    /// Unlocks, and may block as `unlock` does.
    ~ADMFileLock();
    ADMFileLock(const ADMFileLock&) = delete;
    ADMFileLock& operator=(const ADMFileLock&) = delete;

    /// Takes the lock if nobody holds it: makes the file, readable and writable by all whatever the umask. True also
    /// when this object holds it already. A link at the path counts as held by somebody, wherever it leads.
    [[nodiscard]] bool tryLock();
    /// Removes the file, if this object holds the lock; a file that somebody else put in its place stays. Blocks for up
    /// to a tenth of a second. The lock is given up in any case; when the file could not be removed by then, an error
    /// is logged, and the file stays until somebody breaks the lock.
    void unlock();
    /// Removes the file, whoever made it, but never one that somebody made after the call began; does as `unlock` when
    /// this object holds the lock. Blocks for up to a tenth of a second; when the file could not be removed by then (it
    /// is a folder, another user's in a folder such as /tmp, or somebody keeps its advisory lock), an error is logged.
    void breakLock();
    /// When the file was made: its birth time where the file system tells it, else its last modification; nothing
    /// when there is no file.
    [[nodiscard]] std::optional<dmf::Date> lockDate() const;

private:
    const std::string path_;
    mutable std::recursive_mutex lock_;
    std::unique_ptr<dmf::internal::LockFile> taken_; // guarded by lock_; empty while not held
};
