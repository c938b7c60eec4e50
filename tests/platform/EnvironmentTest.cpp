#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dmf/DMCore.h>
#include <dmf/platform/DesktopServices.h>

#include <cstring>

#include <gtest/gtest.h>

#include "support/HostFixture.h"

namespace {

/// A socket in the test's folder that somebody may take for a bus.
class Listener {
public:
    explicit Listener(const std::filesystem::path& path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(socket_, 8), 0);
    }
    ~Listener() { ::close(socket_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Whether somebody connects within the time.
    bool isAsked(int milliseconds) const
    {
        pollfd watched{socket_, POLLIN, 0};
        return ::poll(&watched, 1, milliseconds) == 1;
    }

private:
    const int socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

/// The program that asks the buses, as a child.
class Asking {
public:
    Asking(const std::string& variable, const std::string& value, bool isRaised)
    {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS", "XDG_RUNTIME_DIR"})
                ::unsetenv(name);
            ::setenv(variable.c_str(), value.c_str(), 1);
            // Started by an ordinary user, with root's rights: as a file with the set-user-ID bit would be.
            if (!isRaised || ::setresuid(65534, 0, 0) == 0)
                ::execl(DMF_BUILD_FOLDER "/bin/dmf_test_raised", "dmf_test_raised", nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        output_ = ends[0];
    }
    ~Asking()
    {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(output_);
    }
    Asking(const Asking&) = delete;
    Asking& operator=(const Asking&) = delete;

    /// What it says once it has asked; empty after 30 seconds.
    std::string word() const
    {
        pollfd watched{output_, POLLIN, 0};
        char text[16]{};
        return ::poll(&watched, 1, 30'000) == 1 && ::read(output_, text, sizeof text - 1) > 0 ? text : "";
    }

private:
    pid_t child_ = -1;
    int output_ = -1;
};

} // namespace

TEST(Environment, WithRaisedRightsItSaysHowThingsAreToldButNotWhereTheyAre)
{
    HostFixture host;
    std::filesystem::create_directory(host.path("/user"));
    const Listener listener(host.path("/user/bus"));
    host.host().hasRaisedRights = true;
    host.setEnvironment("LANG", "de_AT.UTF-8");
    host.setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + host.path("/user/bus").string());
    host.setEnvironment("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + host.path("/user/bus").string());
    host.setEnvironment("XDG_RUNTIME_DIR", host.path("/user").string());
    EXPECT_EQ(DMSystemLocaleString(), "de-AT");
    EXPECT_EQ(dmf::busServiceState(dmf::Bus::session, "x.y"), dmf::BusServiceState::noBus);
    EXPECT_EQ(dmf::busServiceState(dmf::Bus::system, "x.y"), dmf::BusServiceState::noBus);
    EXPECT_FALSE(listener.isAsked(0));
}

TEST(Environment, AProgramThatReallyHasRaisedRightsTalksToNoBusOfItsUsers)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to start a program with another user's rights";
    HostFixture host;
    std::filesystem::create_directory(host.path("/user"));
    const std::pair<const char*, std::string> variables[] = {
        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + host.path("/user/bus").string()},
        {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + host.path("/user/bus").string()},
        {"XDG_RUNTIME_DIR", host.path("/user").string()},
    };
    for (const auto& [name, value] : variables) {
        SCOPED_TRACE(name);
        const Listener listener(host.path("/user/bus"));
        {
            const Asking raised(name, value, true);
            EXPECT_EQ(raised.word(), "raised\n");
            EXPECT_FALSE(listener.isAsked(0));
        }
        const Asking ordinary(name, value, false);
        EXPECT_TRUE(listener.isAsked(30'000)) << "the test's own socket was not found";
        std::filesystem::remove(host.path("/user/bus"));
    }
}
