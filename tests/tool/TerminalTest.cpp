#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include "ToolFixture.h"

namespace {

/// A terminal, and what was written to it.
class Terminal {
public:
    Terminal()
    {
        if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0 || ::ptsname_r(master_, name_, sizeof name_) != 0)
            throw std::runtime_error("no terminal");
        slave_ = ::open(name_, O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios raw{};
        ::tcgetattr(slave_, &raw);
        ::cfmakeraw(&raw); // as written, without line ends of its own
        ::tcsetattr(slave_, TCSANOW, &raw);
    }
    ~Terminal()
    {
        ::close(slave_);
        ::close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Runs the tool with the terminal as its output, and its errors as well; gives what it wrote there.
    std::string shown(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"/bin/sh", "-c", "terminal=$1; shift; exec \"$0\" \"$@\" >$terminal 2>&1",
                                             DMF_BUILD_FOLDER "/bin/dmf", name_});
        Process::run(arguments, {}, {{"NO_COLOR", "1"}, {"TERM", "xterm"}});
        std::string text;
        char buffer[4096];
        for (pollfd watched{master_, POLLIN, 0}; ::poll(&watched, 1, 0) == 1 && (watched.revents & POLLIN) != 0;)
            if (const auto got = ::read(master_, buffer, sizeof buffer); got > 0)
                text.append(buffer, static_cast<std::size_t>(got));
        return text;
    }

private:
    const int master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    int slave_ = -1;
    char name_[64]{};
};

using TerminalOutput = ToolTest;

// An escape sequence, an 8-bit control in UTF-8 and as a byte alone, an override of the writing direction.
constexpr const char* kHostile = "A\x1b[2J\xc2\x9b"
                                 "2J\x9b"
                                 "2J\xe2\x80\xae"
                                 "gpj\xc3\xa9";

bool isHarmless(const std::string& text)
{
    return text.find('\x1b') == std::string::npos && text.find("\xc2\x9b") == std::string::npos &&
           text.find("\x9b") == std::string::npos && text.find("\xe2\x80\xae") == std::string::npos;
}

} // namespace

TEST_F(TerminalOutput, WhatADeviceSaysOfItselfSteersNoTerminal)
{
    const Terminal terminal;
    const std::string id = std::string("MFG:QL;MDL:") + kHostile + ";";
    const std::string words = terminal.shown({"device-id", id});
    EXPECT_TRUE(isHarmless(words)) << words;
    EXPECT_NE(words.find("A\\x1b[2J\\x9b2J\\x9b2J\\u202egpj\xc3\xa9"), std::string::npos) << words;

    // As JSON the same text, written otherwise.
    const std::string object = terminal.shown({"device-id", "MFG:QL;MDL:A\x7f\xc2\x9b\xe2\x80\xae\xc3\xa9;", "--json"});
    EXPECT_TRUE(isHarmless(object)) << object;
    EXPECT_EQ(parseObject(object)["model"], "A\x7f\xc2\x9b\xe2\x80\xae\xc3\xa9");
    EXPECT_EQ(parseObject(object), json({"device-id", "MFG:QL;MDL:A\x7f\xc2\x9b\xe2\x80\xae\xc3\xa9;"}).json);

    const std::string refusal = terminal.shown({"uri", "parse", std::string("usb://") + kHostile});
    EXPECT_TRUE(isHarmless(refusal)) << refusal;
    EXPECT_NE(refusal.find("dmf: "), std::string::npos) << refusal;
}

TEST_F(TerminalOutput, AnAnswerGoesByteForByteIntoAPipeAndEscapedToATerminal)
{
    Process device(command({"simulate", "--answer", "\\x1b[2J\\xc2\\x9b\\xc3\\xa9\\r\\nnext\\x9b\\n"}));
    const std::string uri = device.readLine().value_or("");
    const auto file = write("page", "x");
    const auto piped = dmf({"send", uri, file, "--answer", "--timeout", "1"});
    EXPECT_NE(piped.out.find("\x1b[2J\xc2\x9b\xc3\xa9\r\nnext\x9b\n"), std::string::npos) << piped.out << piped.err;
    const std::string shown = Terminal().shown({"send", uri, file, "--answer", "--timeout", "1", "--quiet"});
    EXPECT_TRUE(isHarmless(shown)) << shown;
    EXPECT_NE(shown.find("\\x1b[2J\\x9b\xc3\xa9\r\nnext\\x9b\n"), std::string::npos) << shown;
}
