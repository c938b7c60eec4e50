#include "PasswordInput.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "Interrupt.h"
#include "Output.h"

namespace dmf::tool {

namespace {

void tell(std::string_view text)
{
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
}

/// Asks, and keeps the terminal from showing what is typed, for as long as it lives.
class HiddenTyping {
public:
    HiddenTyping() : isTerminal_(::tcgetattr(STDIN_FILENO, &before_) == 0)
    {
        if (!isTerminal_)
            return;
        termios hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
        tell("Password: ");
    }
    ~HiddenTyping()
    {
        if (!isTerminal_)
            return;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        tell("\n");
    }
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

private:
    termios before_{};
    bool isTerminal_;
};

/// The next byte of standard input; -1 at its end.
int nextByte()
{
    for (;;) {
        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {Interrupt::descriptor(), POLLIN, 0}};
        if (::poll(sources, 2, -1) < 0 && errno != EINTR)
            return -1;
        Interrupt::check();
        if (sources[0].revents == 0)
            continue;
        unsigned char byte = 0;
        return ::read(STDIN_FILENO, &byte, 1) == 1 ? byte : -1;
    }
}

/// Where the line is gathered; wiped at the end, also when reading is broken off.
struct Line {
    std::array<char, 4096> bytes{};
    std::size_t size = 0;
    ~Line() { Secret::wipe(bytes.data(), bytes.size()); }
};

} // namespace

Secret readPassword()
{
    const Interrupt::Scope scope({});
    const HiddenTyping hidden;
    Line line;
    int byte = nextByte();
    for (; byte >= 0 && byte != '\n'; byte = nextByte()) {
        if (line.size == line.bytes.size())
            throw Failure(ExitCode::failed, "the password is too long");
        line.bytes[line.size++] = static_cast<char>(byte);
    }
    if (line.size == 0)
        throw Failure(ExitCode::failed, "there is no password on standard input");
    return Secret(std::string_view(line.bytes.data(), line.size));
}

} // namespace dmf::tool
