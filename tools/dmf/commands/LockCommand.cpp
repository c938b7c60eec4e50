#include <dmf/ADMDistributedLock.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
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

/// The lock, for as long as this object lives.
class Held {
public:
    explicit Held(const LockOptions& options) : lock_(ADMDistributedLock::lockWithName(options.name))
    {
        if (!lock_)
            throw Failure(ExitCode::failed, "there cannot be a lock named '" + options.name +
                                                "': a name holds no slash, and the folder of the locks is /tmp");
        lock_->setLockTimeout(options.timeout);
        isHeld_ = lock_->lock();
    }
    ~Held()
    {
        if (isHeld_)
            lock_->unlock();
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    [[nodiscard]] bool isHeld() const noexcept { return isHeld_; }

private:
    const std::shared_ptr<ADMDistributedLock> lock_;
    bool isHeld_ = false;
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
    Json fields{{"acquired", false}, {"status", nullptr}};
    Command command;
    // From before the lock is had until it has been given back, or an interruption would leave it behind.
    const Interrupt::Scope scope([&command] { command.end(); });
    const Held held(options);
    Interrupt::check();
    if (!held.isHeld())
        throw Failure(ExitCode::timedOut, "the lock '" + options.name + "' could not be had", fields);

    fields["acquired"] = true;
    const auto begin = std::chrono::steady_clock::now();
    const int status = command.runToEnd(options, session.out.json);
    fields["status"] = status;
    if (Interrupt::requested())
        throw Failure(ExitCode::interrupted, "interrupted", fields);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (took.count() > options.timeout)
        session.out.note("the command ran for longer than " + decimal(options.timeout, 1) +
                         " s: whoever waited so long has broken the lock");
    session.out.result(fields, [](const Json&) { return std::string(); });
    return static_cast<ExitCode>(status);
}

} // namespace

void addLockCommand(CLI::App& root, Session& session)
{
    CLI::App* const command =
        addCommand(root, "lock", "Runs a command while holding a lock between processes",
                   "  dmf lock office-printer -- lp page.prn",
                   "The exit status is the command's; 128 and the signal's number when a signal ended it. A lock that "
                   "somebody\nholds for longer than the time-out counts as left behind and is broken, so a command is "
                   "waited for up to\ntwice as long. With --json the command's output goes to standard error.");
    const auto options = std::make_shared<LockOptions>();
    command->add_option("NAME", options->name, "The lock's name")->required();
    command->add_option("COMMAND", options->command, "The command and its arguments, after --")->required();
    addTimeoutOption(command, options->timeout, "The age from which on somebody else's lock is broken");
    onCommand(command, session, [&session, options] { return runUnderLock(session, *options); });
}

} // namespace dmf::tool
