#include "platform/files/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace dmf::internal {
namespace {

struct ReadDescriptor {
    int value;
    ~ReadDescriptor()
    {
        if (value >= 0)
            ::close(value);
    }
};

std::nullopt_t refuse(std::string* refusal, std::string reason)
{
    if (refusal)
        *refusal = std::move(reason);
    return std::nullopt;
}

std::string errorText(int code)
{
    return std::generic_category().message(code);
}

} // namespace

bool isFolder(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string folderOf(const std::string& path)
{
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::optional<std::string> realPath(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> readRegularFile(const std::string& path, std::size_t limit, Links links,
                                                         std::string* refusal)
{
    // Without waiting: opening a named pipe would otherwise last until somebody writes to it.
    const int noFollow = links == Links::refuse ? O_NOFOLLOW : 0;
    const ReadDescriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noFollow)};
    if (file.value < 0)
        return refuse(refusal, errno == ELOOP ? "is a link" : errorText(errno));
    struct stat status {};
    if (::fstat(file.value, &status) != 0)
        return refuse(refusal, errorText(errno));
    if (!S_ISREG(status.st_mode))
        return refuse(refusal, "is not a regular file");
    if (static_cast<std::uint64_t>(status.st_size) > limit)
        return refuse(refusal, std::string(kTooLarge));

    // One byte more than was announced shows a file that is growing.
    std::vector<std::uint8_t> content(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t length = 0;
    for (;;) {
        const ssize_t count = ::read(file.value, content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return refuse(refusal, errorText(errno));
        length += static_cast<std::size_t>(count);
        if (count == 0)
            break;
        if (length > limit)
            return refuse(refusal, std::string(kTooLarge));
        if (length == content.size())
            content.resize(content.size() * 2);
    }
    content.resize(length);
    return content;
}

} // namespace dmf::internal
