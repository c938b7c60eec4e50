#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace dmf::tool {

/// A program that this one runs in its own terminal and waits for. Thread-safe once made.
class ChildProcess {
public:
    /// Starts the program, looked for in PATH; it has the signals as this program was given them. With `outputToError`
    /// it writes its output to standard error. Throws Failure when it cannot be started, with a shell's exit status:
    /// 127 when there is no such program, 126 when it cannot be run.
    ChildProcess(const std::vector<std::string>& command, bool outputToError);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Asks the program to end, and ends it when it does not within 0.7 seconds.
    void end() noexcept;
    /// Its exit status, or 128 and the number of the signal that ended it. Blocks until then; to be called once.
    [[nodiscard]] int wait() noexcept;

private:
    pid_t process_ = -1;
    int handle_ = -1; // readable once the program has ended; unlike its number it never means another one
};

} // namespace dmf::tool
