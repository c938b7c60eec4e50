#include <dmf/DMLog.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <dmf/ADMLoggerImp.h>
#include <dmf/ADMLoggerPool.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Date.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "support/HostFixture.h"
#include "support/Pieces.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr std::string_view kFolder = "/var/log/qlio";
constexpr std::string_view kDefaultFile = "/var/log/qlio/DMF_testprogram.log";
constexpr const char* kWords[] = {"nolog", "info", "warnings", "errors", "debug", "debug2", "verbose"};

/// A machine with a log folder.
class LogHost : public HostFixture {
public:
    LogHost() { std::filesystem::create_directories(path(kFolder)); }
    void configure(std::string_view level) const { writeFile(kDMLogConfigPath, level); }

    /// The messages of a log, without prefix and time.
    std::vector<std::string> messages(std::string_view file = kDefaultFile) const
    {
        std::istringstream lines(readFile(file));
        std::vector<std::string> messages;
        for (std::string line; std::getline(lines, line);)
            messages.push_back(line.substr(line.find("] ") + 2));
        return messages;
    }
};

/// Keeps what is written to it byte by byte, and does before each write what it is told to.
class KeptWrites : public dmf::FileHandle {
public:
    KeptWrites() : FileHandle(-1) {}
    void writeData(std::string_view bytes) override
    {
        if (onWrite)
            onWrite();
        for (const char byte : bytes) {
            text += byte;
            if (byte == '.')
                std::this_thread::yield();
        }
        ++writes;
    }
    std::string text;
    int writes = 0;
    std::function<void()> onWrite;
};

} // namespace

TEST(Logger, LevelsLetThroughByRankAndOnesOwnCountsBeforeTheConfiguredOne)
{
    const struct {
        const char* configured;
        std::optional<std::string> own;
        const char* expected;
    } cases[] = {
        {"nolog", {}, "nolog"},
        {" warnings\n", {}, "nolog|info|warnings"},
        {"debug", {}, "nolog|info|warnings|errors|debug"},
        {"debug2\r\n", {}, "nolog|info|warnings|errors|debug|debug2"},
        {"nolog", "warnings", "nolog|info|warnings"},
        {"nolog", "loud", "nolog|info|warnings|errors|debug|debug2|verbose"},
        {"loud", {}, ""},
        {"\xFF\xFE", {}, ""},
    };
    for (const auto& [configured, own, expected] : cases) {
        LogHost host;
        host.configure(configured);
        const auto logger = own ? ADMLogger::initWithLogLevel(*own, host.path(kDefaultFile).string()) : nullptr;
        if (logger)
            logger->startLogging();
        for (const char* word : kWords)
            DMFLog(word, word);
        if (logger)
            logger->endLogging();
        EXPECT_EQ(host.messages(), *expected ? pieces(expected) : std::vector<std::string>())
            << configured << own.value_or("");
    }
}

TEST(Logger, LineIsPrefixLocalTimeAndText)
{
    LogHost host;
    host.configure("debug");
    // 2026-11-22 20:15:00.123 in a zone of its own.
    ::setenv("TZ", "XYZ-1", 1);
    host.advance(std::chrono::duration<double>(1795374900.1235 - dmf::Date::now().secondsSince1970()));
    DMFLog("errors", "ServiceInfo: %d of '%@'", 3, std::string("x"));
    ::setenv("TZ", "XYZ+2", 1);
    host.advance(1s);
    DMFLog("info", "text that is not UTF-8 is lost \xC3");
    DMFLog("nolog", "100%% of %@", std::optional<std::string>());
    ::unsetenv("TZ");

    EXPECT_THAT(host.readFile(kDefaultFile),
                MatchesRegex("E  \\[20261122T20:15:0[0-9]\\.[0-9]{3}\\] ServiceInfo: 3 of 'x'\n"
                             "\\(null\\) \\[20261122T17:15:0[0-9]\\.[0-9]{3}\\] 100% of \\(null\\)\n"));
}

TEST(Logger, ConfiguredWordIsReadAgainAfterFiveSeconds)
{
    LogHost host;
    EXPECT_FALSE(DMIsLoggingEnabled());
    DMFLog("info", "no file");
    host.configure("info"); // nothing was kept of the missing file
    EXPECT_TRUE(DMIsLoggingEnabled());
    DMFLog("debug", "too much");
    host.configure("debug");
    host.advance(4.9s);
    DMFLog("debug", "still too much");
    host.advance(0.2s);
    DMFLog("debug", "enough");
    host.advance(-6s); // a clock set back far makes a word old, too
    host.configure("info");
    DMFLog("debug", "too much again");
    EXPECT_THAT(host.messages(), ElementsAre("enough"));

    std::filesystem::remove(host.path(kDMLogConfigPath));
    EXPECT_FALSE(DMIsLoggingEnabled()); // the file counts here, not the word that is kept
}

TEST(Logger, EachThreadHasAStackOfItsOwn)
{
    LogHost host;
    const auto first = ADMLogger::initWithLogLevel("debug", host.path("/first.log").string());
    const auto second = ADMLogger::initWithLogLevel("debug", host.path("/second.log").string());
    first->startLogging();
    second->startLogging();
    first->startLogging();
    DMFLog("info", "1");
    std::weak_ptr<ADMLogger> ofThread;
    std::thread([&] {
        EXPECT_EQ(ADMLoggerPool::lastLogger(), nullptr);
        DMFLog("info", "elsewhere");
        const auto own = ADMLogger::initWithLogLevel("debug", host.path("/own.log").string());
        ofThread = own;
        own->startLogging();
    }).join();
    EXPECT_TRUE(ofThread.expired()) << "a thread's end lets go of its loggers";
    first->endLogging(); // its lowest entry goes, not its highest
    EXPECT_EQ(ADMLoggerPool::lastLogger(), first);
    first->endLogging();
    DMFLog("info", "2");
    second->endLogging();
    EXPECT_EQ(ADMLoggerPool::lastLogger(), nullptr);
    EXPECT_THAT(host.messages("/first.log"), ElementsAre("1"));
    EXPECT_THAT(host.messages("/second.log"), ElementsAre("2"));
}

TEST(Logger, OneLoggerPerPathUntilItIsReleasedAndItAppends)
{
    LogHost host;
    const std::string path = host.path("/one.log").string();
    host.writeFile("/one.log", "old] old\n");
    auto logger = ADMLoggerImp::initWithLogLevel("errors", path);
    EXPECT_EQ(ADMLoggerImp::initWithLogLevel("debug", path), logger);
    logger->printWithLevel("info", "before", {});
    std::ofstream(path, std::ios::app) << "theirs] theirs\n";
    logger->printWithLevel("info", "between", {});
    logger.reset();
    std::filesystem::rename(path, path + ".old");
    logger = ADMLoggerImp::initWithLogLevel("debug", path);
    logger->printWithLevel("debug", "after", {});
    EXPECT_THAT(host.messages("/one.log"), ElementsAre("after"));
    EXPECT_THAT(host.messages("/one.log.old"), ElementsAre("old", "before", "theirs", "between"));
}

TEST(Logger, WritesOnlyToAPlainFileOfItsOwn)
{
    LogHost host;
    host.writeFile("/victim", "untouched");
    const auto plain = host.path("/victim");
    std::filesystem::create_directory(host.path("/folder"));
    std::filesystem::create_symlink(plain, host.path("/link"));
    std::filesystem::create_symlink(host.path("/nowhere"), host.path("/dangling"));
    ASSERT_EQ(::mkfifo(host.path("/pipe").c_str(), 0600), 0);
    for (const char* name : {"/folder", "/link", "/dangling", "/pipe", "/missing/file"}) {
        EXPECT_EQ(ADMLogger::createLogFileIfNeeded(host.path(name).string()), nullptr) << name;
        ADMLogger::initWithLogLevel("debug", host.path(name).string())->printWithLevel("info", "lost", {});
    }
    std::filesystem::create_hard_link(plain, host.path("/second name"));
    EXPECT_EQ(ADMLogger::createLogFileIfNeeded(host.path("/second name").string()), nullptr);
    EXPECT_EQ(host.readFile("/victim"), "untouched");
    EXPECT_FALSE(std::filesystem::exists(host.path("/nowhere")));
}

TEST(Logger, GoesOnWithoutAFolderAndWhenTheFileTakesNoMore)
{
    HostFixture host;
    DMFLog("errors", "lost, and no folder is made");
    EXPECT_FALSE(std::filesystem::exists(host.path(kFolder)));
    // A device that is always full stands for a full disk.
    const auto full = ADMLogger::initWithLogLevelFileHandle(
        "debug", std::make_shared<dmf::FileHandle>(::open("/dev/full", O_WRONLY | O_CLOEXEC)));
    full->printWithLevel("info", "lost", {});

    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ::close(ends[1]);
    const auto closed = ADMLogger::initWithLogLevelFileHandle("debug", std::make_shared<dmf::FileHandle>(ends[0]));
    closed->printWithLevel("info", "lost, and no signal", {});
}

TEST(Logger, AMessageIsOneLineInOneWriteAndForeignThrowsPassOnWithoutTheLock)
{
    const auto handle = std::make_shared<KeptWrites>();
    const auto logger = ADMLogger::initWithLogLevelFileHandle("debug", handle);
    handle->onWrite = [] { throw std::runtime_error("disk"); };
    EXPECT_NO_THROW(logger->printWithLevel("info", "lost", {}));
    handle->onWrite = [] { throw 7; };
    EXPECT_THROW(logger->printWithLevel("info", "passed on", {}), int);
    handle->onWrite = nullptr;
    logger->printWithLevel("info", "kept", {});
    EXPECT_EQ(handle->writes, 1);
    EXPECT_THAT(handle->text, testing::EndsWith("] kept\n"));

    const std::string uri = "usb://a\nE  [20260101T00:00:00.000] forged\r\x1b[2J\x7f\ttab \xc2\x85 \xc3\xa9";
    logger->printWithLevel("info", "uri '%@'", std::vector<dmf::FormatArgument>{uri});
    EXPECT_EQ(handle->writes, 2);
    EXPECT_THAT(handle->text,
                testing::EndsWith("] uri 'usb://a\\nE  [20260101T00:00:00.000] forged\\r\\x1b[2J\\x7f\ttab \\u0085 "
                                  "\xc3\xa9'\n"));

    // Wherever it stands: texts are looked through several bytes at a time.
    for (std::size_t length = 1; length <= 17; ++length)
        for (std::size_t place = 0; place < length; ++place)
            for (const char control : {'\x1f', '\x7f'}) {
                std::string text(length, '~');
                text[place] = control;
                handle->text.clear();
                logger->printWithLevel("info", text, {});
                EXPECT_EQ(handle->text.find(control), std::string::npos) << length << ' ' << place;
            }
}

TEST(Logger, AFullPipeThatIsReadLaterLosesNothing)
{
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    dmf::FileHandle reading(ends[0]);
    const std::string text(1024 * 1024, 'x'); // more than a pipe holds
    std::size_t got = 0;
    std::thread reader([&] {
        char buffer[4096];
        pollfd watched{ends[0], POLLIN, 0};
        while (got < text.size() && ::poll(&watched, 1, 10'000) > 0)
            if (const auto count = ::read(ends[0], buffer, sizeof buffer); count > 0)
                got += static_cast<std::size_t>(count);
    });
    dmf::FileHandle writing(ends[1]);
    EXPECT_NO_THROW(writing.writeData(text));
    reader.join();
    EXPECT_EQ(got, text.size());
}

TEST(Logger, LinesOfTwoThreadsNeverInterleave)
{
    LogHost host;
    host.configure("debug");
    // A handle that writes in pieces would show lines mixed up, were they not kept apart.
    const auto handle = std::make_shared<KeptWrites>();
    const auto logger = ADMLogger::initWithLogLevelFileHandle("debug", handle);
    const auto log = [&](const char* message) {
        logger->startLogging();
        for (int i = 0; i < 500; ++i)
            DMFLog("info", message);
        logger->endLogging();
    };
    std::thread one(log, "a.a.a.a");
    std::thread two(log, "b.b.b.b");
    one.join();
    two.join();
    std::istringstream lines(handle->text);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_THAT(line, MatchesRegex("I  \\[[^]]*\\] (a\\.a\\.a\\.a|b\\.b\\.b\\.b)"));
    EXPECT_EQ(count, 1000);
}

TEST(Logger, ErrorsAndWarningsAreCopiedToTheSystemLogWhateverTheLevel)
{
    LogHost host;
    DMFLog("errors", "not asked for");
    host.setEnvironment("DMFConsoleLog", "");
    for (const char* word : kWords)
        DMFLog(word, "%@!", word);
    EXPECT_THAT(host.systemLog(), ElementsAre(std::pair(LOG_WARNING, "warnings!"), std::pair(LOG_ERR, "errors!")));
    EXPECT_THAT(host.messages(), IsEmpty());
}
