#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A bus that takes connections and never says a word.
class SilentBus {
public:
    SilentBus()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-bus-XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(socket_, 8) != 0)
            throw std::runtime_error("cannot listen");
    }
    ~SilentBus()
    {
        ::close(socket_);
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    SilentBus(const SilentBus&) = delete;
    SilentBus& operator=(const SilentBus&) = delete;

    [[nodiscard]] std::string address() const { return "unix:path=" + path(); }
    /// Whether anybody has connected within the time.
    [[nodiscard]] bool wasCalled(int milliseconds) const
    {
        pollfd incoming{socket_, POLLIN, 0};
        return ::poll(&incoming, 1, milliseconds) == 1;
    }

private:
    [[nodiscard]] std::string path() const { return (folder_ / "bus").string(); }

    std::filesystem::path folder_;
    int socket_ = -1;
};
