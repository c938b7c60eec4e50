#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

/// A child process with its three streams. Every wait has a bound; a child that is still there at the end is killed.
class Process {
public:
    using Environment = std::map<std::string, std::string>;
    struct Result {
        int status = -1; ///< the exit status; 128 + the signal that ended it; -1 when it had to be killed
        std::string out;
        std::string err;
    };

    /// Starts the program, by its path or by its name alone; what it inherits of the environment is replaced where
    /// `environment` names it. One that cannot be started has the exit status 127.
    explicit Process(const std::vector<std::string>& command, const Environment& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Gives the text to the child's standard input; false when the child takes no more for a while.
    bool write(const std::string& text);
    void closeInput();
    pid_t pid() const { return pid_; }
    void signal(int number) const;
    /// Waits until standard output holds a further whole line, and gives that line; nothing when the child ends before.
    std::optional<std::string> readLine();
    /// Waits until standard error holds the text.
    bool waitForError(const std::string& text);
    /// Closes standard input and waits for the end.
    Result wait();

    /// Runs a program to its end.
    static Result run(const std::vector<std::string>& command, const std::string& input = {},
                      const Environment& environment = {});

private:
    /// Takes what the child has written, waiting for some until the deadline; false at the end of both streams.
    bool take(std::chrono::steady_clock::time_point deadline);

    pid_t pid_ = -1;
    int input_ = -1;
    int streams_[2] = {-1, -1};
    std::string texts_[2];
    std::size_t nextLine_ = 0; // where it begins on standard output
};
