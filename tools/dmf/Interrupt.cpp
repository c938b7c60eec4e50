#include "Interrupt.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "Output.h"

namespace dmf::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kGrace = std::chrono::seconds(2);

struct Watch {
    int signals = -1;
    int changed = -1;   // wakes the watching thread
    int requested = -1; // readable for good once a signal has come
    std::atomic<bool> isRequested{false};
    std::atomic<bool> owesObject{false};
    std::thread thread;

    std::mutex lock;
    std::function<void()> cancel;                 // guarded by lock
    std::thread canceller;                        // guarded by lock
    std::optional<Clock::time_point> deadline;    // guarded by lock
    std::optional<Clock::time_point> abandonAt;   // guarded by lock
    ExitCode abandonCode = ExitCode::interrupted; // guarded by lock
    bool inScope = false;                         // guarded by lock
    bool timedOut = false;                        // guarded by lock
    bool ended = false;                           // guarded by lock
};

Watch& watch()
{
    static Watch* const instance = new Watch; // outlives the watching thread in every case
    return *instance;
}

void wake(int descriptor)
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(descriptor, &one, sizeof one);
}

void writeIfPossible(int descriptor, std::string_view text)
{
    pollfd ready{descriptor, POLLOUT, 0};
    if (::poll(&ready, 1, 0) == 1 && (ready.revents & POLLOUT) != 0) {
        [[maybe_unused]] const auto written = ::write(descriptor, text.data(), text.size());
    }
}

// Gives up the work that does not end: no destructors, since its threads still run, and nothing that could wait for
// them, such as a stream's lock.
[[noreturn]] void abandon(Watch& state, ExitCode code)
{
    const std::string reason = code == ExitCode::timedOut ? "timed out" : "interrupted";
    if (state.owesObject)
        writeIfPossible(STDOUT_FILENO, errorObject(code, reason).dump(2) + '\n');
    writeIfPossible(STDERR_FILENO, "dmf: " + reason + '\n');
    ::_exit(static_cast<int>(code));
}

// Asks the work to end, on a thread of its own: were that to hang, signals and the limit must still be heard.
void cancelWork(Watch& state, ExitCode code)
{
    if (!state.abandonAt) {
        state.abandonAt = Clock::now() + kGrace;
        state.abandonCode = code;
    }
    if (auto cancel = std::exchange(state.cancel, nullptr))
        state.canceller = std::thread(std::move(cancel));
}

void onSignal(Watch& state)
{
    if (state.isRequested.exchange(true))
        abandon(state, ExitCode::interrupted); // asked twice
    std::lock_guard guard(state.lock);
    if (!state.inScope)
        abandon(state, ExitCode::interrupted);
    wake(state.requested); // with the lock held: the scope must not end between the two
    state.abandonCode = ExitCode::interrupted;
    cancelWork(state, ExitCode::interrupted);
}

// Handles what is due and gives the milliseconds until the next thing is; -1 for none.
int serveDeadlines(Watch& state)
{
    std::lock_guard guard(state.lock);
    const auto now = Clock::now();
    if (state.abandonAt && *state.abandonAt <= now)
        abandon(state, state.abandonCode);
    if (state.deadline && *state.deadline <= now) {
        state.deadline.reset();
        state.timedOut = !state.isRequested;
        cancelWork(state, ExitCode::timedOut);
    }
    const auto next = state.abandonAt ? state.abandonAt : state.deadline;
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return left < 0 ? 0 : left > 3'600'000 ? 3'600'000 : static_cast<int>(left);
}

void watchLoop(Watch& state)
{
    for (;;) {
        pollfd sources[] = {{state.signals, POLLIN, 0}, {state.changed, POLLIN, 0}};
        if (::poll(sources, 2, serveDeadlines(state)) <= 0)
            continue;
        if (sources[1].revents != 0) {
            std::uint64_t count;
            [[maybe_unused]] const auto got = ::read(state.changed, &count, sizeof count);
            std::lock_guard guard(state.lock);
            if (state.ended)
                return;
        }
        signalfd_siginfo info;
        if (sources[0].revents != 0 && ::read(state.signals, &info, sizeof info) == sizeof info)
            onSignal(state);
    }
}

sigset_t watchedSignals()
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            ::sigaddset(&set, number);
    }
    return set;
}

} // namespace

void Interrupt::install()
{
    Watch& state = watch();
    const sigset_t set = watchedSignals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    state.signals = ::signalfd(-1, &set, SFD_CLOEXEC);
    state.changed = ::eventfd(0, EFD_CLOEXEC);
    state.requested = ::eventfd(0, EFD_CLOEXEC);
    if (state.signals < 0 || state.changed < 0 || state.requested < 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    state.thread = std::thread([&state] { watchLoop(state); });
}

void Interrupt::uninstall()
{
    Watch& state = watch();
    if (!state.thread.joinable())
        return;
    {
        std::lock_guard guard(state.lock);
        state.ended = true;
    }
    wake(state.changed);
    state.thread.join();
}

bool Interrupt::requested() noexcept
{
    return watch().isRequested;
}

void Interrupt::oweObject(bool owed) noexcept
{
    watch().owesObject = owed;
}

void Interrupt::check()
{
    if (requested())
        throw Failure(ExitCode::interrupted, "interrupted");
}

int Interrupt::descriptor() noexcept
{
    return watch().requested;
}

Interrupt::Scope::Scope(std::function<void()> cancel, std::optional<double> seconds)
{
    Watch& state = watch();
    std::lock_guard guard(state.lock);
    state.cancel = std::move(cancel);
    state.inScope = true;
    state.timedOut = false;
    if (seconds) {
        // A bound that keeps the sum representable; nobody waits a year.
        const double bounded = *seconds < 3.0e7 ? *seconds : 3.0e7;
        state.deadline =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
    }
    wake(state.changed);
}

Interrupt::Scope::~Scope()
{
    Watch& state = watch();
    std::function<void()> unused; // destroyed outside the lock
    std::thread canceller;
    {
        std::lock_guard guard(state.lock);
        unused.swap(state.cancel);
        canceller.swap(state.canceller);
        state.deadline.reset();
    }
    if (canceller.joinable())
        canceller.join();
    std::lock_guard guard(state.lock);
    state.inScope = false;
    state.abandonAt.reset();
}

bool Interrupt::Scope::timedOut() const noexcept
{
    Watch& state = watch();
    std::lock_guard guard(state.lock);
    return state.timedOut;
}

} // namespace dmf::tool
