#include <dmf/DMLog.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
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
    const auto refusal = [&](const char* name) {
        std::string reason;
        const bool isOpen = ADMLogger::createLogFileIfNeeded(host.path(name).string(), &reason) != nullptr;
        EXPECT_EQ(isOpen, reason.empty()) << name;
        return reason;
    };
    host.writeFile("/victim", "untouched");
    host.writeFile("/shared/plain", "");
    std::filesystem::create_directory(host.path("/folder"));
    ASSERT_EQ(::mkfifo(host.path("/pipe").c_str(), 0600), 0);
    for (const char* name : {"/folder", "/pipe", "/missing/file"}) {
        EXPECT_NE(refusal(name), "") << name;
        EXPECT_EQ(ADMLogger::reasonNotToLog(host.path(name).string()), refusal(name));
        ADMLogger::initWithLogLevel("debug", host.path(name).string())->printWithLevel("info", "lost", {});
    }

    // What only its owner can have put there is his affair; in a folder that others may write to it may be theirs.
    for (const auto mode : {0755, 01777, 0777}) {
        ASSERT_EQ(::chmod(host.path("/shared").c_str(), static_cast<mode_t>(mode)), 0);
        std::filesystem::remove(host.path("/shared/link"));
        std::filesystem::remove(host.path("/shared/second name"));
        std::filesystem::remove(host.path("/shared/dangling"));
        std::filesystem::create_symlink(host.path("/victim"), host.path("/shared/link"));
        std::filesystem::create_hard_link(host.path("/victim"), host.path("/shared/second name"));
        std::filesystem::create_symlink(host.path("/nowhere"), host.path("/shared/dangling"));
        const bool isSafe = mode == 0755;
        for (const char* name : {"/shared/link", "/shared/second name", "/shared/dangling"})
            EXPECT_EQ(refusal(name).empty(), isSafe) << name << ' ' << std::oct << mode;
        EXPECT_EQ(std::filesystem::remove(host.path("/nowhere")), isSafe);
        EXPECT_EQ(refusal("/shared/plain"), "");
    }
    EXPECT_EQ(host.readFile("/victim"), "untouched");
}

TEST(Logger, WritesNoLineIntoTheFileOfAnotherUserButIntoRootsAndItsOwn)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to make files of others";
    constexpr uid_t other = 65534;
    LogHost host;
    host.configure("debug");
    host.writeFile(kDefaultFile, "");
    const std::string path = host.path(kDefaultFile);
    ASSERT_EQ(::chown(path.c_str(), other, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    DMFLog("errors", "not for him");
    EXPECT_EQ(host.readFile(kDefaultFile), "");
    EXPECT_THAT(ADMLogger::reasonNotToLog(path), testing::HasSubstr("belongs to another user (65534)"));

    // As that user: his own file and root's are fine, a third one's is not.
    ASSERT_EQ(::chmod(host.host().rootFolder.c_str(), 0755), 0);
    ASSERT_EQ(::seteuid(other), 0);
    const auto own = ADMLogger::reasonNotToLog(path);
    ASSERT_EQ(::seteuid(0), 0);
    ASSERT_EQ(::chown(path.c_str(), 0, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(::seteuid(other), 0);
    const auto roots = ADMLogger::reasonNotToLog(path);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(own, "");
    EXPECT_EQ(roots, "");
}

TEST(Logger, MakesFilesThatOnlyTheirOwnerWritesWhateverTheUmask)
{
    LogHost host;
    const auto umask = ::umask(0);
    ADMLogger::initWithLogLevel("debug", host.path("/own.log").string())->printWithLevel("info", "x", {});
    ::umask(umask);
    struct stat status {};
    ASSERT_EQ(::stat(host.path("/own.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
}

TEST(Logger, TriesAgainAtMostOnceASecondToOpenItsFile)
{
    HostFixture host;
    host.writeFile("/elsewhere/DMFLogLevel", "debug");
    const std::string path = host.path("/made later/own.log");
    const auto own = ADMLoggerImp::initWithLogLevel("errors", path);
    std::filesystem::create_directories(host.path("/made later"));
    own->printWithLevel("info", "too early", {});
    EXPECT_FALSE(std::filesystem::exists(path));
    host.advance(1.1s);
    own->printWithLevel("debug", "filtered out, so nothing is opened", {});
    EXPECT_FALSE(std::filesystem::exists(path));
    own->printWithLevel("info", "one", {});
    EXPECT_EQ(ADMLoggerImp::initWithLogLevel("debug", path), own) << "one file, one logger";
    EXPECT_THAT(host.readFile("/made later/own.log"), testing::EndsWith("] one\n"));

    DMFLog("errors", "the default logger's folder is missing");
    std::filesystem::create_directories(host.path(kFolder));
    host.writeFile(kDMLogConfigPath, "debug");
    host.advance(1.1s);
    DMFLog("errors", "there it is");
    EXPECT_THAT(host.readFile(kDefaultFile), testing::EndsWith("] there it is\n"));
}

TEST(Logger, ALineAfterACutOneBeginsOnALineOfItsOwn)
{
    LogHost host;
    const auto path = host.path("/own.log");
    auto logger = ADMLogger::initWithLogLevel("debug", path.string());
    const rlim_t limits[] = {70, RLIM_INFINITY};
    ::signal(SIGXFSZ, SIG_IGN);
    for (const auto limit : limits) { // a file that takes no more stands for a full disk
        const rlimit size{limit, RLIM_INFINITY};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &size), 0);
        for (const char* text : {"a line that fits", "a line that the disk takes a part of", "lost"})
            logger->printWithLevel("info", text, {});
    }
    const std::string log = host.readFile("/own.log");
    EXPECT_THAT(host.messages("/own.log"), ElementsAre("a line that fits", testing::Not(IsEmpty()), "a line that fits",
                                                       "a line that the disk takes a part of", "lost"))
        << log;
    EXPECT_EQ(log.find("\n\n"), std::string::npos);

    // One that another program left, or this one before it ended.
    logger.reset();
    std::ofstream(path, std::ios::app) << "cut";
    ADMLogger::initWithLogLevel("debug", path.string())->printWithLevel("info", "next", {});
    EXPECT_THAT(host.readFile("/own.log"), testing::ContainsRegex("\ncut\nI  [^\n]*\\] next\n$"));
}

TEST(Logger, NeverThrowsWhateverALoggerOrADescriptionDoes)
{
    struct Foreign {
        std::string description() const { throw 7; }
    };
    class Failing : public ADMLogger {
        void printWithLevel(std::string_view, std::string_view, std::span<const dmf::FormatArgument>) override
        {
            throw "no std::exception";
        }
    };
    LogHost host;
    host.configure("debug");
    host.setEnvironment("DMFConsoleLog", "");
    EXPECT_NO_THROW(DMFLog("errors", "of '%@'", Foreign()));
    const auto failing = std::make_shared<Failing>();
    failing->startLogging();
    EXPECT_NO_THROW(DMFLog("errors", "lost here"));
    failing->endLogging();
    host.host().systemLog = [](int, std::string_view) { throw 7; };
    EXPECT_NO_THROW(DMFLog("errors", "written"));
    EXPECT_THAT(host.messages(), ElementsAre("written"));
    EXPECT_THAT(host.systemLog(), ElementsAre(std::pair(LOG_ERR, "lost here")));
}

TEST(Logger, APipeThatNobodyReadsCostsASecondWhateverSignalsCome)
{
    // Blocking and not; the signals come more often than once a second.
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &quiet, nullptr), 0);
    const itimerval often{{0, 100'000}, {0, 100'000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
    for (const int flags : {O_NONBLOCK, 0}) {
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC | flags), 0);
        dmf::FileHandle writing(ends[1]);
        const std::string text(1024 * 1024, 'x'); // more than a pipe holds
        try {
            writing.writeData(text);
            ADD_FAILURE() << "nobody has read it";
        } catch (const dmf::ShortWrite& failure) {
            EXPECT_EQ(failure.written(), static_cast<std::size_t>(::fcntl(ends[1], F_GETPIPE_SZ)));
        }
        ::close(ends[0]);
    }
    const itimerval never{};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
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

    const std::string uri = "usb://a\nE  [20260101T00:00:00.000] forged\r\x1b[2J\x7f\ttab \xc2\x85 \xc3\xa9"
                            "\xe2\x80\xae\xe2\x81\xa9\xe2\x82\xac";
    logger->printWithLevel("info", "uri '%@'", std::vector<dmf::FormatArgument>{uri});
    EXPECT_EQ(handle->writes, 2);
    EXPECT_THAT(handle->text,
                testing::EndsWith("] uri 'usb://a\\nE  [20260101T00:00:00.000] forged\\r\\x1b[2J\\x7f\ttab \\u0085 "
                                  "\xc3\xa9\\u202e\\u2069\xe2\x82\xac'\n"));

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
    DMFLog("errors", "\xC2\x41 is half a character and a letter, \xC2\x9B a control");
    EXPECT_THAT(host.systemLog(),
                ElementsAre(std::pair(LOG_WARNING, "warnings!"), std::pair(LOG_ERR, "errors!"),
                            std::pair(LOG_ERR, "\xC2\x41 is half a character and a letter, \\u009b a control")));
    EXPECT_THAT(host.messages(), IsEmpty());
}
