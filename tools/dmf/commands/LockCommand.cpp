#include <dmf/ADMDistributedLock.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Interrupt.h"
#include "Session.h"

namespace dmf::tool {

namespace {

struct LockOptions {
    std::string name;
    std::vector<std::string> command;
    double timeout = 30.0;
};

/// The lock, for as long as this object lives. While it is held, a thread keeps it young, so that a command may take
/// longer than the time after which a lock counts as left behind.
class Held {
public:
    explicit Held(const LockOptions& options) : lock_(ADMDistributedLock::lockWithName(options.name))
    {
        if (!lock_)
            throw Failure(ExitCode::failed, "there cannot be a lock named '" + options.name +
                                                "': a name holds no slash, and the folder of the locks is /tmp");
        lock_->setLockTimeout(options.timeout);
        isHeld_ = lock_->lock();
        if (isHeld_)
            keeper_ =
                std::jthread([this, pause = options.timeout / 4](const std::stop_token& end) { keep(pause, end); });
    }
    ~Held()
    {
        if (!isHeld_)
            return;
        endKeeping();
        lock_->unlock();
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    [[nodiscard]] bool isHeld() const noexcept { return isHeld_; }
    /// Whether somebody broke it meanwhile. To be asked at the end: it is kept young no more.
    [[nodiscard]] bool isLost()
    {
        endKeeping();
        return isLost_ = isLost_ || !lock_->renew();
    }

private:
    void keep(double seconds, const std::stop_token& end)
    {
        constexpr double longest = 60.0;
        const std::chrono::duration<double> pause(seconds < longest ? seconds : longest);
        std::unique_lock guard(waiting_);
        while (!isLost_ && !changed_.wait_for(guard, end, pause, [&] { return end.stop_requested(); }))
            isLost_ = !lock_->renew();
    }

    void endKeeping()
    {
        keeper_.request_stop();
        if (keeper_.joinable())
            keeper_.join();
    }

    const std::shared_ptr<ADMDistributedLock> lock_; // the keeper's while that runs
    bool isHeld_ = false;
    bool isLost_ = false; // the keeper's while that runs
    std::mutex waiting_;
    std::condition_variable_any changed_;
    std::jthread keeper_;
};

/// A command that can be ended from another thread, before it begins as well.
class Command {
public:
    int runToEnd(const LockOptions& options, bool outputToError)
    {
        {
            std::lock_guard guard(lock_);
            Interrupt::check();
            child_.emplace(options.command, outputToError);
        }
        return child_->wait();
    }
    void end()
    {
        std::lock_guard guard(lock_);
        if (child_)
            child_->end();
    }

private:
    std::mutex lock_;
    std::optional<ChildProcess> child_; // made under lock_, once
};

ExitCode runUnderLock(Session& session, const LockOptions& options)
{
    Json fields{{"acquired", false}, {"status", nullptr}, {"lost", false}};
    Command command;
    // From before the lock is had until it has been given back, or an interruption would leave it behind.
    const Interrupt::Scope scope([&command] { command.end(); });
    Held held(options);
    Interrupt::check();
    if (!held.isHeld())
        throw Failure(ExitCode::timedOut, "the lock '" + options.name + "' could not be had", fields);

    fields["acquired"] = true;
    const int status = command.runToEnd(options, session.out.json);
    fields["status"] = status;
    const bool isLost = held.isLost();
    fields["lost"] = isLost;
    if (isLost)
        session.out.note("the lock '" + options.name +
                         "' was broken while the command ran: another one may have run at the same time");
    if (Interrupt::requested())
        throw Failure(ExitCode::interrupted, "interrupted", fields);
    session.out.result(fields, [](const Json&) { return std::string(); });
    return static_cast<ExitCode>(status);
}

} // namespace

void addLockCommand(CLI::App& root, Session& session)
{
    CLI::App* const command = addCommand(
        root, "lock", "Runs a command while holding a lock between processes",
        "  dmf lock office-printer -- lp page.prn",
        "The exit status is the command's; 128 and the signal's number when a signal ended it, 127 when there is "
        "no such\ncommand, 126 when it cannot be run. The lock is kept fresh while the command runs. One that "
        "is older than\nthe time-out counts as left behind and is broken; what is held is waited for up to "
        "twice as long. With --json the command's output goes to standard error.");
    const auto options = std::make_shared<LockOptions>();
    command->add_option("NAME", options->name, "The lock's name")->required();
    command->add_option("COMMAND", options->command, "The command and its arguments, after --")->required();
    addTimeoutOption(command, options->timeout, "The age from which on somebody else's lock is broken");
    onCommand(command, session, [&session, options] { return runUnderLock(session, *options); });
}

} // namespace dmf::tool
