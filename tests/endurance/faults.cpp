// Does everything that a program does with the library while the machine fails it, each time in a process of its own:
// the work ends with a result, an ordinary failure too, and is done again once the machine is well. usage: faults
// [long]

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Works.h"
#include "support/DescriptorLimit.h"

namespace {

std::atomic<int> gThreadsLeft{-1}; // none refused while it is negative
std::atomic<int> gWallClockOffset{0};

} // namespace

/// Every thread of the process is made by this one, whoever makes it.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
    int left = gThreadsLeft.load();
    while (left >= 0 && !gThreadsLeft.compare_exchange_weak(left, std::max(left - 1, 0))) {
    }
    return left == 0 ? EAGAIN : create(thread, attributes, body, argument);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const int status = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (status == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        time->tv_sec += gWallClockOffset.load();
    return status;
}

namespace {

using endurance::Outcome;
using endurance::Stage;
using endurance::Work;
using namespace std::chrono_literals;

constexpr unsigned kLongestCase = 60; // seconds; a case that lasts longer hangs

/// What the machine does to the program for as long as it lives.
class Fault {
public:
    virtual ~Fault() = default;
};

struct NoDescriptors final : Fault {
    explicit NoDescriptors(int left) : limit(static_cast<unsigned>(left)) {}
    DescriptorLimit limit;
};

struct NoThreads final : Fault {
    explicit NoThreads(int left) { gThreadsLeft = left; }
    ~NoThreads() override { gThreadsLeft = -1; }
};

/// A handler of the program's that interrupts whatever waits, every other millisecond.
struct Signals final : Fault {
    explicit Signals(int)
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGPROF, &action, nullptr);
        program_ = ::pthread_self();
        thread_ = std::thread([this] {
            while (!isOver_) {
                ::pthread_kill(program_, SIGPROF);
                std::this_thread::sleep_for(2ms);
            }
        });
    }
    ~Signals() override
    {
        isOver_ = true;
        thread_.join();
    }

private:
    pthread_t program_{};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

/// Somebody sets the wall clock forward and back; the steady one goes on.
struct Clock final : Fault {
    explicit Clock(int)
    {
        thread_ = std::thread([this] {
            for (int seconds = 3600; !isOver_; seconds = -seconds) {
                gWallClockOffset = seconds;
                std::this_thread::sleep_for(5ms);
            }
            gWallClockOffset = 0;
        });
    }
    ~Clock() override
    {
        isOver_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

/// No file takes a byte more.
struct FullDisk final : Fault {
    explicit FullDisk(int)
    {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit none = before_;
        none.rlim_cur = 0;
        ::setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FullDisk() override { ::setrlimit(RLIMIT_FSIZE, &before_); }

private:
    rlimit before_{};
};

template <class Kind>
std::unique_ptr<Fault> make(int strength)
{
    return std::make_unique<Kind>(strength);
}

struct Row {
    const char* name;
    std::unique_ptr<Fault> (*begin)(int strength);
    std::vector<int> strengths;
    bool mustBeDone; // the fault is no reason not to do the work
};

/// Runs in a process of its own; gives its exit status.
int inFault(const Work& work, Stage& stage, const Row& row, int strength, bool isWarm)
{
    if (isWarm && work.run(stage) != Outcome::done)
        return 10;
    Outcome outcome = Outcome::silent;
    {
        const auto fault = row.begin(strength);
        outcome = work.run(stage);
    }
    if (outcome == Outcome::silent)
        return 11;
    if (row.mustBeDone && outcome != Outcome::done)
        return 12;
    // A log that could not be opened is tried again after a second.
    for (const auto limit = std::chrono::steady_clock::now() + 30s; work.run(stage) != Outcome::done;) {
        if (std::chrono::steady_clock::now() > limit)
            return 13;
    }
    return outcome == Outcome::done ? 0 : 1;
}

/// A copy by fork, made while other threads of the program use the library: nothing hangs, nothing is done.
int afterFork(const Work& work, Stage& stage)
{
    if (work.run(stage) != Outcome::done)
        return 10;
    std::atomic<bool> isOver{false};
    const auto busy = [&](const Work& busyWork) {
        return std::thread([&, &it = busyWork] {
            while (!isOver)
                (void)it.run(stage);
        });
    };
    std::thread first = busy(work);
    std::thread second = busy(work);
    int worst = 0;
    for (int copies = 0; copies < 5; ++copies) {
        std::this_thread::sleep_for(std::chrono::milliseconds(7 * copies));
        const pid_t copy = ::fork();
        if (copy == 0) {
            ::alarm(30);
            for (const Work& each : endurance::works()) {
                // The program's own files and a log that is refused; the rest is nothing at all.
                if (each.run(stage) == Outcome::done && each.name != "lock")
                    ::_exit(14);
            }
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(copy, &status, 0);
        worst = std::max(worst, WIFEXITED(status) ? WEXITSTATUS(status) : 15);
    }
    isOver = true;
    first.join();
    second.join();
    return worst;
}

const char* verdictOf(int status)
{
    if (WIFSIGNALED(status))
        return WTERMSIG(status) == SIGALRM ? "HANGS" : ::strsignal(WTERMSIG(status));
    switch (WEXITSTATUS(status)) {
    case 0: return "done";
    case 1: return "refused";
    case 10: return "FAILS WITHOUT A FAULT";
    case 11: return "TELLS NOTHING";
    case 12: return "FAILS WITHOUT NEED";
    case 13: return "FAILS FOR GOOD";
    case 14: return "WORKS IN A COPY";
    case 15: return "HANGS OR DIES IN A COPY";
    default: return "ENDS THE PROGRAM";
    }
}

/// Does it in a process of its own, which has never used the library.
const char* tried(const std::string& device, const std::function<int(Stage&)>& body)
{
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kLongestCase);
        int result = 99;
        {
            Stage stage(device);
            result = body(stage);
        }
        ::_exit(result);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return verdictOf(status);
}

} // namespace

int main(int argc, char** argv)
{
    const bool isLong = argc == 2 && std::string(argv[1]) == "long";
    const std::vector<int> all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const std::vector<int> some{0, 3, 8};
    const std::vector<Row> rows{
        {"descriptors", &make<NoDescriptors>, isLong ? all : some, false},
        {"threads", &make<NoThreads>, isLong ? std::vector<int>{0, 1, 2, 3} : std::vector<int>{0, 1}, false},
        {"signals", &make<Signals>, {0}, true},
        {"clock", &make<Clock>, {0}, true},
        {"full disk", &make<FullDisk>, {0}, false}};
    const std::string device = endurance::startEchoDevice();
    int faults = 0;
    std::map<std::string, int> counts;
    const auto note = [&](const Work& work, const std::string& row, const std::string& verdict) {
        ++counts[row + ": " + verdict];
        if (verdict == "done" || verdict == "refused")
            return;
        ++faults;
        std::printf("%s, %s: %s\n", std::string(work.name).c_str(), row.c_str(), verdict.c_str());
    };
    for (const Work& work : endurance::works()) {
        for (const Row& row : rows) {
            for (const int strength : row.strengths) {
                for (const bool isWarm : {false, true})
                    note(work, row.name,
                         tried(device, [&](Stage& stage) { return inFault(work, stage, row, strength, isWarm); }));
            }
        }
        if (isLong || work.name == "channel" || work.name == "discovery" || work.name == "log line")
            note(work, "fork", tried(device, [&](Stage& stage) { return afterFork(work, stage); }));
    }
    for (const auto& [what, count] : counts)
        std::printf("%-28s %5d\n", what.c_str(), count);
    return faults == 0 ? 0 : 1;
}
