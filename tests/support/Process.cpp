#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// Far beyond what anything here takes, also under a sanitizer on a busy machine.
constexpr auto kBound = std::chrono::seconds(20);

int milliseconds(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

} // namespace

Process::Process(const std::vector<std::string>& command, const Environment& environment)
{
    ::signal(SIGPIPE, SIG_IGN); // a child that ends early must not end the test
    int pipes[3][2];
    for (auto& pipe : pipes)
        if (::pipe2(pipe, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, pipes[0][0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pipes[1][1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pipes[2][1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t reset;
    ::sigemptyset(&reset);
    ::posix_spawnattr_setsigmask(&attributes, &reset);
    for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&reset, number);
    ::posix_spawnattr_setsigdefault(&attributes, &reset);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<std::string> arguments{"env"};
    for (const auto& [name, value] : environment)
        arguments.push_back(name + '=' + value);
    arguments.insert(arguments.end(), command.begin(), command.end());
    std::vector<char*> pointers;
    for (auto& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    const int error = ::posix_spawnp(&pid_, "env", &actions, &attributes, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    ::close(pipes[0][0]);
    ::close(pipes[1][1]);
    ::close(pipes[2][1]);
    input_ = pipes[0][1];
    streams_[0] = pipes[1][0];
    streams_[1] = pipes[2][0];
    ::fcntl(input_, F_SETFL, O_NONBLOCK);
    if (error != 0) {
        pid_ = -1;
        throw std::runtime_error("cannot start " + command.front() + ": " + std::strerror(error));
    }
}

Process::~Process()
{
    closeInput();
    for (const int stream : streams_)
        if (stream >= 0)
            ::close(stream);
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

bool Process::write(const std::string& text)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(500);
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = ::write(input_, text.data() + done, text.size() - done);
        if (wrote > 0) {
            done += static_cast<std::size_t>(wrote);
            continue;
        }
        pollfd ready{input_, POLLOUT, 0};
        if (::poll(&ready, 1, milliseconds(deadline)) != 1 || (ready.revents & POLLERR) != 0)
            return false;
    }
    return true;
}

void Process::closeInput()
{
    if (input_ >= 0)
        ::close(input_);
    input_ = -1;
}

void Process::signal(int number) const
{
    ::kill(pid_, number);
}

bool Process::take(Clock::time_point deadline)
{
    pollfd sources[] = {{streams_[0], POLLIN, 0}, {streams_[1], POLLIN, 0}};
    if (::poll(sources, 2, milliseconds(deadline)) <= 0)
        return true;
    for (int i = 0; i < 2; ++i) {
        if (sources[i].fd < 0 || sources[i].revents == 0)
            continue;
        char buffer[65536];
        const ssize_t got = ::read(streams_[i], buffer, sizeof buffer);
        if (got > 0) {
            texts_[i].append(buffer, static_cast<std::size_t>(got));
        } else {
            ::close(streams_[i]);
            streams_[i] = -1;
        }
    }
    return streams_[0] >= 0 || streams_[1] >= 0;
}

std::optional<std::string> Process::readLine()
{
    const auto deadline = Clock::now() + kBound;
    while (texts_[0].find('\n', nextLine_) == std::string::npos)
        if (!take(deadline) || Clock::now() >= deadline)
            return std::nullopt;
    const auto begin = nextLine_;
    const auto end = texts_[0].find('\n', begin);
    nextLine_ = end + 1;
    return texts_[0].substr(begin, end - begin);
}

bool Process::waitForError(const std::string& text)
{
    const auto deadline = Clock::now() + kBound;
    while (texts_[1].find(text) == std::string::npos)
        if (!take(deadline) || Clock::now() >= deadline)
            return false;
    return true;
}

Process::Result Process::wait()
{
    closeInput();
    const auto deadline = Clock::now() + kBound;
    while (take(deadline) && Clock::now() < deadline) {
    }
    Result result{-1, texts_[0], texts_[1]};
    if (Clock::now() >= deadline)
        return result; // the destructor kills it
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

Process::Result Process::run(const std::vector<std::string>& command, const std::string& input,
                             const Environment& environment)
{
    Process process(command, environment);
    process.write(input);
    return process.wait();
}
