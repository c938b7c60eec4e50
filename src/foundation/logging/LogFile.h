#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <dmf/platform/FileHandle.h>

namespace dmf::internal {

/// Why no lines of this program's can go to the file at `path`; empty when they can. The file may be missing as long as
/// its folder is there. It must be a regular file of root's or of the program's own user: what anybody else put under
/// the log's name would hand him the lines. For the same reason a link, and a file with a second name, counts only
/// where nobody else may write to the folder (and the link is root's or the user's own). Thread-safe.
[[nodiscard]] std::string reasonAgainstLogFile(const std::string& path);

/// The file at `path`, made when it is missing and opened for reading and for appending; empty, with the reason in
/// `refusal` when it is not null, when that fails or `reasonAgainstLogFile` speaks against it. Thread-safe.
[[nodiscard]] std::shared_ptr<FileHandle> openLogFile(const std::string& path, std::string* refusal);

/// Where the lines of one path go. There is one for each path in a process, so that lines never interleave and a file
/// has one handle. Thread-safe.
///
///     closed ──made, or a line is to be written──► open, for good
///       ▲                └──cannot be opened──► refused
///       └────a second later, at the next line──────┘
class LogFile {
public:
    explicit LogFile(std::string path);
    /// One that is open already.
    explicit LogFile(std::shared_ptr<FileHandle> handle);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Whether it is open; tries to open it, at most once a second.
    [[nodiscard]] bool isReady();
    /// Writes a line, which ends in a line end, where it is open. What the file does not take is lost; the next line
    /// begins on a line of its own all the same. What a derived handle throws that is no std::exception is passed on.
    void write(std::string_view line);

private:
    void tryToOpen();

    const std::string path_;
    std::mutex lock_;
    std::shared_ptr<FileHandle> handle_; // guarded by lock_
    bool lineIsCut_ = false;             // guarded by lock_: what was written last does not end in a line end
    std::atomic<bool> isOpen_{false};
    std::atomic<double> nextTry_{0}; // on the forward clock
};

} // namespace dmf::internal
