#include "foundation/logging/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>

#include "platform/files/Files.h"
#include "platform/host/Host.h"
#include "platform/host/Trust.h"

namespace dmf::internal {
namespace {

constexpr double kSecondsBetweenTries = 1.0;

std::string textOfError(int code)
{
    return std::generic_category().message(code);
}

/// What speaks against the file itself.
std::string reasonAgainstFile(const struct stat& status, const std::string& path)
{
    if (!S_ISREG(status.st_mode))
        return path + (S_ISDIR(status.st_mode) ? " is a folder" : " is no regular file");
    if (!isTrustedUser(status.st_uid))
        return path + " belongs to another user (" + std::to_string(status.st_uid) + ")";
    if (status.st_nlink > 1 && !reasonNotToTrust(folderOf(path)).empty())
        return path + " has a second name, and others may write to its folder";
    return {};
}

std::string reasonAgainstMissing(const std::string& path)
{
    const std::string folder = folderOf(path);
    if (!isFolder(folder))
        return "there is no folder " + folder;
    return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? std::string()
                                                                               : folder + ": " + textOfError(errno);
}

/// The same as reasonAgainstLogFile; tells also whether a link has to be followed.
std::string reasonAgainstFile(const std::string& path, bool& isLink)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return errno == ENOENT ? reasonAgainstMissing(path) : path + ": " + textOfError(errno);
    isLink = S_ISLNK(status.st_mode);
    if (isLink) {
        if (!isTrustedUser(status.st_uid) || !reasonNotToTrust(folderOf(path)).empty())
            return path + " is a link that others made or could exchange";
        if (::stat(path.c_str(), &status) != 0)
            return errno == ENOENT ? std::string() : path + ": " + textOfError(errno);
    }
    auto reason = reasonAgainstFile(status, path);
    if (reason.empty() && ::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0)
        reason = path + ": " + textOfError(errno);
    return reason;
}

bool endsInACutLine(int descriptor)
{
    const off_t size = ::lseek(descriptor, 0, SEEK_END);
    char last = '\n';
    return size > 0 && ::pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

} // namespace

std::string reasonAgainstLogFile(const std::string& path)
{
    bool isLink = false;
    return reasonAgainstFile(path, isLink);
}

std::shared_ptr<FileHandle> openLogFile(const std::string& path, std::string* refusal)
{
    const auto refuse = [&](std::string reason) {
        if (refusal)
            *refusal = std::move(reason);
        return nullptr;
    };
    // Looked at before it is opened, since opening a device can already do something; and again once it is open, since
    // it may have been exchanged in between.
    bool isLink = false;
    if (auto reason = reasonAgainstFile(path, isLink); !reason.empty())
        return refuse(std::move(reason));
    const int flags = O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (isLink ? 0 : O_NOFOLLOW);
    const int descriptor = ::open(path.c_str(), flags, 0644);
    if (descriptor < 0)
        return refuse(path + ": " + textOfError(errno));
    auto handle = std::make_shared<FileHandle>(descriptor);
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return refuse(path + ": " + textOfError(errno));
    if (auto reason = reasonAgainstFile(status, path); !reason.empty())
        return refuse(std::move(reason));
    return handle;
}

LogFile::LogFile(std::string path) : path_(std::move(path))
{
    tryToOpen();
}

LogFile::LogFile(std::shared_ptr<FileHandle> handle) : handle_(std::move(handle)), isOpen_(true) {}

void LogFile::tryToOpen()
{
    nextTry_ = Host::current().steadyNow() + kSecondsBetweenTries;
    handle_ = openLogFile(path_, nullptr);
    if (!handle_)
        return;
    // A program that ended in the middle of its line, on a full disk for example.
    lineIsCut_ = endsInACutLine(handle_->descriptor());
    isOpen_.store(true, std::memory_order_release);
}

bool LogFile::isReady()
{
    if (isOpen_.load(std::memory_order_acquire))
        return true;
    if (Host::current().steadyNow() < nextTry_)
        return false;
    std::lock_guard guard(lock_);
    if (!isOpen_ && Host::current().steadyNow() >= nextTry_)
        tryToOpen();
    return isOpen_;
}

void LogFile::write(std::string_view line)
{
    if (!isOpen_.load(std::memory_order_acquire))
        return;
    std::lock_guard guard(lock_);
    try {
        if (lineIsCut_)
            handle_->writeData('\n' + std::string(line));
        else
            handle_->writeData(line);
        lineIsCut_ = false;
    } catch (const ShortWrite& failure) {
        // A full disk costs the line, never the program.
        lineIsCut_ = lineIsCut_ ? failure.written() != 1 : failure.written() > 0;
    } catch (const std::exception&) {
        // Nor does a file that does not tell what it took.
    }
}

} // namespace dmf::internal
