#include <dmf/ADMDistributedLock.h>
#include <dmf/ADMFileLock.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/LogCapture.h"

using namespace std::chrono_literals;

namespace {

/// A second process that runs `work` with the writing end of a pipe, and is killed at the end if it still lives.
class Process {
public:
    explicit Process(const std::function<void(int report)>& work)
    {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::close(ends[0]);
            work(ends[1]);
            ::_exit(0);
        }
        ::close(ends[1]);
        reports_ = ends[0];
    }
    ~Process()
    {
        kill();
        ::close(reports_);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void kill()
    {
        if (child_ <= 0)
            return;
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        child_ = 0;
    }
    /// The next byte that the process reports within the time; 0 for none.
    char nextReport(std::chrono::milliseconds within) const
    {
        pollfd wanted{reports_, POLLIN, 0};
        char byte = 0;
        if (::poll(&wanted, 1, static_cast<int>(within.count())) == 1 && ::read(reports_, &byte, 1) == 1)
            return byte;
        return 0;
    }

private:
    pid_t child_ = 0;
    int reports_ = -1;
};

void report(int pipe, char what)
{
    EXPECT_EQ(::write(pipe, &what, 1), 1);
}

/// A process that takes the lock, says so, and sits on it.
void takeAndStay(int pipe)
{
    const auto lock = ADMDistributedLock::initWithName("device");
    report(pipe, lock && lock->lock() ? 'L' : 'F');
    ::pause();
}

/// Sets the date back of what is at the path, be it a link.
void age(const std::filesystem::path& path, std::time_t seconds)
{
    const timespec date{std::time(nullptr) - seconds, 0};
    const timespec dates[] = {date, date};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), dates, AT_SYMLINK_NOFOLLOW), 0);
}

struct LocksTest : testing::Test {
    LocksTest() { std::filesystem::create_directories(host.path("/tmp")); }
    std::string log() const { return capture.text(); }

    HostFixture host;
    LogCapture capture{host};
};

using FileLock = LocksTest;
using DistributedLock = LocksTest;

} // namespace

TEST_F(FileLock, OneHolderAtATimeWhateverTheUmaskUntilTheLockIsBroken)
{
    const std::string path = host.path("/tmp/device.lock");
    const auto first = ADMFileLock::initWithPath(path);
    const auto second = ADMFileLock::initWithPath(path);
    const auto umask = ::umask(0077);
    EXPECT_TRUE(first->tryLock());
    ::umask(umask);
    EXPECT_TRUE(first->tryLock());
    EXPECT_FALSE(second->tryLock());
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
    EXPECT_NEAR(first->lockDate()->secondsSince1970(), dmf::Date::now().secondsSince1970(), 60);
    second->unlock(); // does not hold it
    EXPECT_FALSE(second->tryLock());
    second->breakLock();
    EXPECT_TRUE(second->tryLock());
    first->unlock(); // nor does the old holder any more
    EXPECT_TRUE(std::filesystem::exists(path));
    second->unlock();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileLock, PathsThatCannotHoldALockAreRefusedAndLinksAreNotFollowed)
{
    EXPECT_EQ(ADMFileLock::initWithPath(host.path("/tmp").string()), nullptr);
    EXPECT_EQ(ADMFileLock::initWithPath(host.path("/missing/device.lock").string()), nullptr);

    const auto target = host.path("/precious");
    std::filesystem::create_symlink(target, host.path("/tmp/device.lock"));
    const auto lock = ADMFileLock::initWithPath(host.path("/tmp/device.lock").string());
    EXPECT_FALSE(lock->tryLock());
    EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(FileLock, IsGivenBackWhereItWasTakenWhateverFolderTheProgramHasGoneTo)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(host.path("/tmp"));
    const auto lock = ADMFileLock::initWithPath("device.lock");
    EXPECT_TRUE(lock->tryLock());
    std::filesystem::create_directory(host.path("/tmp/other"));
    std::filesystem::current_path(host.path("/tmp/other"));
    host.writeFile("/tmp/other/device.lock", "somebody else's");
    lock->unlock();
    EXPECT_FALSE(std::filesystem::exists(host.path("/tmp/device.lock")));
    EXPECT_TRUE(std::filesystem::exists(host.path("/tmp/other/device.lock")));
    std::filesystem::current_path(before);
}

TEST_F(FileLock, BreakingRemovesAForeignFileButNeverTheOneThatCameAfterIt)
{
    const auto path = host.path("/tmp/device.lock");
    const auto lock = ADMFileLock::initWithPath(path.string());
    host.writeFile("/tmp/device.lock", "made by another program");
    lock->breakLock();
    EXPECT_FALSE(std::filesystem::exists(path));
    std::filesystem::create_symlink("/missing", path);
    lock->breakLock();
    EXPECT_FALSE(std::filesystem::is_symlink(path));

    // Between the look at the file and the right to remove it another process does so, and somebody takes the lock.
    host.writeFile("/tmp/device.lock", "stale");
    static const HostFixture* machine;
    machine = &host;
    host.host().lockFile = [](int descriptor, int operation) {
        if (machine->readFile("/tmp/device.lock") == "stale") {
            std::filesystem::remove(machine->path("/tmp/device.lock"));
            machine->writeFile("/tmp/device.lock", "a successor's");
        }
        return ::flock(descriptor, operation);
    };
    lock->breakLock();
    EXPECT_EQ(host.readFile("/tmp/device.lock"), "a successor's");
}

TEST_F(LocksTest, FileSystemsWithoutAdvisoryLocksHoldAndGiveBackAllTheSame)
{
    int (*const fileSystems[])(int, int) = {
        [](int descriptor, int operation) { // a network file system wants to write for an exclusive lock
            const bool writes = (::fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDONLY;
            return writes ? ::flock(descriptor, operation) : (errno = EBADF, -1);
        },
        [](int, int) { return errno = EBADF, -1; },
        [](int, int) { return errno = ENOLCK, -1; },
        [](int, int) { return errno = EOPNOTSUPP, -1; },
    };
    for (const auto& fileSystem : fileSystems) {
        host.host().lockFile = fileSystem;
        const auto path = host.path("/tmp/device.lock");
        const auto lock = ADMFileLock::initWithPath(path.string());
        EXPECT_TRUE(lock->tryLock());
        lock->unlock();
        EXPECT_FALSE(std::filesystem::exists(path));
        host.writeFile("/tmp/device.lock", "");
        lock->breakLock();
        EXPECT_FALSE(std::filesystem::exists(path));

        host.writeFile("/tmp/device.dmf", "");
        age(host.path("/tmp/device.dmf"), 3600);
        const auto named = ADMDistributedLock::initWithName("device");
        named->setLockTimeout(1);
        EXPECT_TRUE(named->lock());
        EXPECT_TRUE(named->unlock());
        EXPECT_FALSE(std::filesystem::exists(host.path("/tmp/device.dmf")));
    }
    EXPECT_EQ(log().find("E  "), std::string::npos) << log();
}

TEST_F(DistributedLock, ALiveLockOutlastsAClockThatIsSetAndADeadOneDoesNot)
{
    const auto holder = ADMDistributedLock::initWithName("device");
    ASSERT_TRUE(holder->lock());
    host.host().dayClockOffset = std::chrono::microseconds(1h).count();
    {
        const Process waiter(takeAndStay);
        EXPECT_EQ(waiter.nextReport(300ms), 0);
    }
    EXPECT_TRUE(holder->unlock());
    EXPECT_FALSE(std::filesystem::exists(host.path("/tmp/device.dmf")));
    EXPECT_EQ(log().find("already been broken"), std::string::npos);

    ASSERT_TRUE(holder->lock());
    host.host().dayClockOffset = -std::chrono::microseconds(1h).count();
    host.advance(31s);
    const Process next(takeAndStay);
    EXPECT_EQ(next.nextReport(30s), 'L');
}

TEST_F(DistributedLock, AFileOfAnEarlierBootGrowsOldByItsDate)
{
    const auto path = host.path("/tmp/device.dmf");
    ASSERT_TRUE(ADMDistributedLock::initWithName("device")->lock());
    struct stat made {};
    ASSERT_EQ(::stat(path.c_str(), &made), 0);
    std::string content = host.readFile("/tmp/device.dmf");
    ASSERT_GT(content.size(), 8U);
    content[0] = content[0] == 'a' ? 'b' : 'a'; // of the boot's identity
    host.writeFile("/tmp/device.dmf", content);
    const timespec dates[] = {made.st_atim, made.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), dates, 0), 0);

    host.host().dayClockOffset = std::chrono::microseconds(1h).count();
    Process next(takeAndStay);
    EXPECT_EQ(next.nextReport(20s), 'L'); // long before its time by the forward clock
}

TEST_F(DistributedLock, IsKeptYoungByItsHolderWhoLearnsOfItsLoss)
{
    const auto holder = ADMDistributedLock::initWithName("device");
    EXPECT_FALSE(holder->renew());
    ASSERT_TRUE(holder->lock());
    for (int i = 0; i < 3; ++i) {
        host.advance(20s);
        EXPECT_TRUE(holder->renew());
    }
    {
        const Process waiter(takeAndStay);
        EXPECT_EQ(waiter.nextReport(100ms), 0);
    }
    host.advance(31s);
    Process next(takeAndStay);
    ASSERT_EQ(next.nextReport(30s), 'L');
    EXPECT_FALSE(holder->renew());
    EXPECT_TRUE(holder->unlock());
    EXPECT_TRUE(std::filesystem::exists(host.path("/tmp/device.dmf")));
}

TEST_F(DistributedLock, AKilledHoldersLockIsBrokenOnceItsTimeIsOver)
{
    Process holder(takeAndStay);
    ASSERT_EQ(holder.nextReport(30s), 'L');
    holder.kill();

    const auto lock = ADMDistributedLock::initWithName("device");
    lock->setLockPollingTimeInterval(0.001);
    struct stat left {};
    ASSERT_EQ(::stat(host.path("/tmp/device.dmf").c_str(), &left), 0);
    const dmf::Date taken(static_cast<double>(left.st_mtim.tv_sec) + static_cast<double>(left.st_mtim.tv_nsec) * 1e-9);
    host.advance(29.5s);
    EXPECT_TRUE(lock->lock()); // the rest of its time is waited for
    EXPECT_GT(dmf::Date::now().timeIntervalSince(taken), 30.0);
    EXPECT_NE(log().find("-[ADMDistributedLock lock]: distributed lock is broken"), std::string::npos);
    EXPECT_TRUE(lock->unlock());
    EXPECT_FALSE(std::filesystem::exists(host.path("/tmp/device.dmf")));
}

TEST_F(DistributedLock, AFreshLockOfAnotherProcessIsWaitedForTwiceTheTimeOut)
{
    const auto lock = ADMDistributedLock::initWithName("device");
    Process holder(takeAndStay);
    ASSERT_EQ(holder.nextReport(30s), 'L');
    age(host.path("/tmp/device.dmf"), -3600); // from the future, it does not grow old while it is waited for
    lock->setLockTimeout(0.1);
    lock->setLockPollingTimeInterval(0.005);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock->lock());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
    EXPECT_NE(log().find("-[ADMDistributedLock lock]: timeout. Lock hasn't been acquired"), std::string::npos);
    EXPECT_TRUE(lock->unlock()); // holds nothing, does nothing
}

TEST_F(DistributedLock, AStaleLockHasExactlyOneWinnerAmongManyWaiters)
{
    const auto path = host.path("/tmp/device.dmf");
    for (int round = 0; round < 20; ++round) {
        std::filesystem::remove(path);
        std::filesystem::remove(host.path("/go"));
        if (round % 2 == 0)
            host.writeFile("/tmp/device.dmf", "");
        else
            std::filesystem::create_symlink("/missing", path);
        age(path, 3600);
        const auto compete = [](int pipe) {
            const auto lock = ADMDistributedLock::initWithName("device");
            lock->setLockPollingTimeInterval(0.0005);
            for (const auto go = dmf::internal::Host::current().path("/go"); ::access(go.c_str(), F_OK) != 0;)
                ::sched_yield(); // all begin at once
            if (lock->lock())
                report(pipe, 'W');
            ::pause();
        };
        std::array<Process, 4> waiters{Process(compete), Process(compete), Process(compete), Process(compete)};
        host.writeFile("/go", "");
        // The winner's lock is good for 30 seconds: every further report within them is a second winner.
        int winners = 0;
        for (int i = 0; i < 10000 && winners == 0; ++i)
            for (const Process& waiter : waiters)
                winners += waiter.nextReport(1ms) == 'W';
        for (const Process& waiter : waiters)
            winners += waiter.nextReport(5ms) == 'W';
        EXPECT_EQ(winners, 1);
    }
}

TEST_F(DistributedLock, AHolderThatOutlivedItsTimeIsToldAndLeavesTheNewHolderAlone)
{
    const auto slow = ADMDistributedLock::initWithName("device");
    ASSERT_TRUE(slow->lock());
    host.advance(31s);
    Process next(takeAndStay);
    ASSERT_EQ(next.nextReport(30s), 'L');
    EXPECT_TRUE(slow->unlock());
    EXPECT_NE(log().find("the lock has already been broken by somebody else"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(host.path("/tmp/device.dmf")));
}

TEST_F(DistributedLock, NamesStayInTheirFolderAndPlantedLinksAreNotFollowed)
{
    EXPECT_EQ(ADMDistributedLock::initWithName("../etc/passwd"), nullptr);
    const auto target = host.path("/precious");
    host.writeFile("/precious", "kept");
    std::filesystem::create_symlink(target, host.path("/tmp/device.dmf"));
    age(host.path("/tmp/device.dmf"), 3600);
    // The link itself grows old and is removed like any lock left behind.
    EXPECT_TRUE(ADMDistributedLock::initWithName("device")->lock());
    EXPECT_EQ(host.readFile("/precious"), "kept");
    EXPECT_FALSE(std::filesystem::is_symlink(host.path("/tmp/device.dmf")));
}

TEST_F(DistributedLock, AFileThatSomebodyLooksAtIsNotRemovedUnderHisHands)
{
    const auto lock = ADMDistributedLock::initWithName("device");
    ASSERT_TRUE(lock->lock());
    const int file = ::open(host.path("/tmp/device.dmf").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(file, LOCK_EX), 0);
    EXPECT_FALSE(lock->unlock());
    EXPECT_TRUE(std::filesystem::exists(host.path("/tmp/device.dmf")));
    EXPECT_NE(log().find("-[ADMDistributedLock unlock]: exception caughtduring unlocking"), std::string::npos);
    ::close(file);
    EXPECT_TRUE(lock->unlock());
    EXPECT_FALSE(std::filesystem::exists(host.path("/tmp/device.dmf")));
}

TEST_F(DistributedLock, WhatCannotBeRemovedIsWaitedForToTheEndAndAFolderThatCannotHoldLocksIsTold)
{
    std::filesystem::create_directory(host.path("/tmp/device.dmf"));
    age(host.path("/tmp/device.dmf"), 3600);
    const auto lock = ADMDistributedLock::initWithName("device");
    lock->setLockTimeout(0.05);
    lock->setLockPollingTimeInterval(0.005);
    EXPECT_FALSE(lock->lock());
    EXPECT_NE(log().find("-[ADMDistributedLock lock]: timeout. Lock hasn't been acquired"), std::string::npos);
    EXPECT_EQ(log().find("exception caught"), std::string::npos);
    EXPECT_EQ(log().find("distributed lock is broken"), log().rfind("distributed lock is broken")) << "told once";
    std::filesystem::remove_all(host.path("/tmp"));
    EXPECT_FALSE(lock->lock());
    EXPECT_NE(log().find("-[ADMDistributedLock lock] : exception caught during operating on lock"), std::string::npos);
}
