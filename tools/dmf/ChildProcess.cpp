#include "ChildProcess.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Output.h"

namespace dmf::tool {

namespace {

void sendSignal(int handle, int number) noexcept
{
    ::syscall(SYS_pidfd_send_signal, handle, number, nullptr, 0);
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, bool outputToError)
{
    std::vector<char*> arguments;
    for (const auto& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (outputToError)
        ::posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    // This program blocks the signals that it reads; for the other they are to do what they always do.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = ::posix_spawnp(&process_, arguments.front(), &actions, &attributes, arguments.data(), ::environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    // As a shell tells it.
    constexpr auto noSuchCommand = static_cast<ExitCode>(127);
    constexpr auto cannotBeRun = static_cast<ExitCode>(126);
    if (error != 0)
        throw Failure(error == ENOENT || error == ENOTDIR ? noSuchCommand : cannotBeRun,
                      "cannot run " + command.front() + ": " + std::generic_category().message(error));
    handle_ = static_cast<int>(::syscall(SYS_pidfd_open, process_, 0));
}

ChildProcess::~ChildProcess()
{
    if (handle_ >= 0)
        ::close(handle_);
}

void ChildProcess::end() noexcept
{
    constexpr int patience = 700; // milliseconds
    sendSignal(handle_, SIGTERM);
    pollfd ended{handle_, POLLIN, 0};
    if (::poll(&ended, 1, patience) != 1)
        sendSignal(handle_, SIGKILL);
}

int ChildProcess::wait() noexcept
{
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0)
        if (errno != EINTR)
            return 1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace dmf::tool
