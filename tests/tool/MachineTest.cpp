#include <signal.h>

#include "ToolFixture.h"
#include "support/KeyringFixture.h"
#include "support/Stopwatch.h"

namespace {

constexpr const char* kUri = "socket://printer1/?vendor=QL&product=Aurora%20450n";

class Machine : public ToolTest {
protected:
    /// A name that no other test has; the lock's file goes with the test.
    std::string lockName() const { return folder.filename(); }
    std::filesystem::path lockFile() const { return "/tmp/" + lockName() + ".dmf"; }
};

TEST_F(Machine, TellsWhatADeviceIdSays)
{
    const auto known = json({"device-id", "MANUFACTURER:QL; MDL:Aurora 450n;DES:A\x1b[1m;SN: CN1;BD:2,7;"});
    EXPECT_EQ(known.status, 0);
    EXPECT_EQ(known.json["vendor"], "QL");
    EXPECT_EQ(known.json["model"], "Aurora 450n");
    EXPECT_EQ(known.json["serialNumber"], "CN1");
    EXPECT_EQ(known.json["channels"], Json({2, 7}));
    EXPECT_EQ(dmf({"device-id", "DES:A\x1b[1m"}).out.find('\x1b'), std::string::npos);

    EXPECT_EQ(json({"device-id", "MDL:M9"}).json["vendor"], nullptr);
    EXPECT_EQ(json({"device-id", "no field at all"}).status, 4);
    EXPECT_EQ(json({"device-id", ""}).status, 4);
}

TEST_F(Machine, KeepsCredentialsInTheKeyringAndNeverShowsAPassword)
{
    KeyringFixture keyring;
    const auto environment = keyring.bus.environment();
    EXPECT_EQ(json({"credentials", "show", kUri}, {}, environment).status, 4);
    EXPECT_EQ(json({"credentials", "store", kUri, "admin"}, "pass word\nsecond line\n", environment).status, 0);
    EXPECT_EQ(keyring.lookUp({"server", kUri, "user", "admin", "label", "Aurora 450n"}), "pass word");

    const auto shown = dmf({"credentials", "show", kUri}, {}, environment);
    EXPECT_EQ(shown.out, "username: admin\nfound: yes\n");
    EXPECT_EQ(json({"credentials", "show", kUri}, {}, environment).json["username"], "admin");

    const auto again = dmf({"credentials", "store", kUri, "admin"}, "other\n", environment);
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("already"), std::string::npos) << again.err;
    EXPECT_EQ(again.err.find("other"), std::string::npos) << again.err;
    EXPECT_EQ(dmf({"credentials", "store", kUri, "eva"}, "", environment).status, 1) << "no password";
    EXPECT_EQ(dmf({"credentials", "store", "no uri", "eva"}, "x", environment).status, 1);

    keyring.lock();
    const auto locked = json({"credentials", "show", kUri}, {}, environment);
    EXPECT_EQ(locked.status, 4);
    EXPECT_EQ(locked.json["found"], false);
    EXPECT_NE(locked.err.find("locked"), std::string::npos) << locked.err;
}

TEST_F(Machine, RunsACommandUnderALockAndPassesOnItsStatus)
{
    const auto result = dmf({"lock", lockName(), "--", "sh", "-c", "test -f \"$0\" && echo log; exit 7", lockFile()});
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "log\n");
    EXPECT_EQ(dmf({"lock", lockName(), "--", "sh", "-c", "kill -KILL $$"}).status, 137);
    EXPECT_EQ(dmf({"lock", lockName(), "--", "/nonexistent"}).status, 127);
    EXPECT_EQ(dmf({"lock", lockName(), "--", write("no program", "")}).status, 126);
    EXPECT_FALSE(std::filesystem::exists(lockFile()));
    EXPECT_EQ(dmf({"lock", "a/b", "--", "true"}).status, 1);

    EXPECT_EQ(dmf({"lock", lockName(), "--", "echo", "log", "--json"}).out, "log --json\n")
        << "the command's own words";
    const auto object = dmf({"--json", "lock", lockName(), "--", "sh", "-c", "echo words; exit 3"});
    EXPECT_EQ(parseObject(object.out)["status"], 3);
    EXPECT_EQ(parseObject(object.out)["acquired"], true);
    EXPECT_EQ(object.err, "words\n");
}

TEST_F(Machine, LetsOneCommandOfALockRunAfterTheOther)
{
    const std::string log = folder / "log";
    Process first(command({"lock", lockName(), "--", "sh", "-c", "echo in; read x; echo first >>\"$0\"", log}));
    ASSERT_EQ(first.readLine(), "in");
    Process second(command({"lock", lockName(), "--", "sh", "-c", "echo second >>\"$0\"", log}));
    first.write("go on\n");
    EXPECT_EQ(first.wait().status, 0);
    EXPECT_EQ(second.wait().status, 0);
    EXPECT_EQ(read(log), "first\nsecond\n");

    Process interrupted(
        command({"lock", lockName(), "--", "sh", "-c", "trap '' TERM; echo in; exec tail -f /dev/null"}));
    ASSERT_EQ(interrupted.readLine(), "in");
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait().status, 130);
    EXPECT_FALSE(std::filesystem::exists(lockFile())) << "a command that does not want to end keeps no lock";
}

TEST_F(Machine, KeepsALockFreshForLongerThanItsTimeAndTellsWhoLostIt)
{
    const auto waiting = [this] { // as its holder's, so that it breaks what is older
        return dmf({"lock", lockName(), "--timeout", "3", "--", "true"}).status;
    };
    Process first(command({"lock", lockName(), "--timeout", "3", "--", "sh", "-c", "echo in; read x"}));
    ASSERT_EQ(first.readLine(), "in");
    EXPECT_EQ(waiting(), 3) << "six seconds, twice the age at which a lock is broken";
    first.write("go on\n");
    const auto kept = first.wait();
    EXPECT_EQ(kept.status, 0);
    EXPECT_EQ(kept.err, "");

    Process loser(command({"--json", "lock", lockName(), "--", "sh", "-c", "echo in >&2; read x"}));
    ASSERT_TRUE(loser.waitForError("in"));
    std::filesystem::remove(lockFile());
    write("theirs", "");
    std::filesystem::copy_file(folder / "theirs", lockFile());
    loser.write("go on\n");
    const auto lost = loser.wait();
    EXPECT_EQ(lost.status, 0);
    EXPECT_EQ(parseObject(lost.out)["lost"], true);
    EXPECT_NE(lost.err.find("was broken while the command ran"), std::string::npos) << lost.err;
    EXPECT_TRUE(std::filesystem::remove(lockFile())) << "the new holder's";
}

TEST_F(Machine, DoesWithoutStandardStreams)
{
    const auto closed = [](const std::string& redirections, const std::string& arguments) {
        return Process::run({"/bin/sh", "-c", "exec " DMF_BUILD_FOLDER "/bin/dmf " + arguments + ' ' + redirections});
    };
    EXPECT_EQ(closed("<&-", "credentials store 'socket://printer1/?vendor=QL' eva").status, 1);
    EXPECT_EQ(closed("<&- >&- 2>&-", "uri make host printer1").status, 0);
    // The log file must not become the standard error that was closed.
    const auto log = folder / "run.log";
    EXPECT_EQ(closed("2>&-", "--log-file '" + log.string() + "' uri parse nonsense").status, 1);
    EXPECT_EQ(read(log).find("dmf: "), std::string::npos) << read(log);
}

TEST_F(Machine, TellsWhoseLogsAreNotWrittenAndRootMakesOneForAll)
{
    // In a mount namespace, where the folder of the logs is the test's own.
    const std::string script = write("script", R"(
tool=$0 folder=/var/log/qlio
as() { user=$1; shift; setpriv --reuid "$user" --regid "$user" --clear-groups "$@"; }
mount -t tmpfs -o mode=755 none /var/log && as 65534 test -x "$tool" || exit 77
"$tool" log errors >&2 || exit 1
as 65533 sh -c "echo theirs >$folder/DMF_app.log"
as 65534 "$tool" doctor --json | tr -d '\n'; echo
as 65533 "$tool" log --shared app >&2; echo $?
"$tool" log --shared app --json | tr -d '\n'; echo
stat -c '%u %g %a' $folder/DMF_app.log
as 65534 "$tool" doctor --json | tr -d '\n'; echo
ln -s /etc/passwd $folder/DMF_link.log
"$tool" log --shared link >&2; echo $?
as 65533 touch $folder/DMF_dmf.log
"$tool" log
)");
    const auto result =
        Process::run({"/usr/bin/unshare", "--mount", "/bin/sh", "-c", ". \"$1\"", DMF_BUILD_FOLDER "/bin/dmf", script});
    std::istringstream lines(result.out);
    const auto next = [&lines] {
        std::string line;
        std::getline(lines, line);
        return line;
    };
    const auto logCheck = [&] { return parseObject(next())["checks"][0]; };
    const std::string begin = next();
    if (begin.empty())
        GTEST_SKIP() << "needs root and a mount namespace: " << result.err;
    const Json before = parseObject(begin)["checks"][0];
    EXPECT_EQ(before["good"], false);
    EXPECT_NE(before["message"].get<std::string>().find("DMF_app.log belongs to another user (65533)"),
              std::string::npos)
        << before;
    EXPECT_EQ(next(), "1") << "only root may";
    EXPECT_EQ(parseObject(next())["notWritten"], nullptr);
    EXPECT_EQ(next(), "0 0 666");
    EXPECT_EQ(logCheck()["good"], true);
    EXPECT_EQ(next(), "1") << "a link is not shared";
    EXPECT_NE(result.out.find("not written by this user: /var/log/qlio/DMF_dmf.log belongs to another user"),
              std::string::npos)
        << result.out;
}

TEST_F(Machine, IsExaminedWithinABoundWhateverIsWrong)
{
    const auto examined = [](const Process::Environment& environment) {
        const Stopwatch watch;
        const auto result = json({"doctor"}, {}, environment);
        EXPECT_EQ(result.status, 0);
        EXPECT_LT(watch.seconds(), 18);
        std::map<std::string, Json> checks;
        for (const auto& each : result.json["checks"]) {
            checks[each["name"]] = each;
            EXPECT_NE(each["message"], "");
            EXPECT_TRUE(each["good"] == true || each["advice"].is_string()) << each;
        }
        return checks;
    };
    KeyringFixture keyring;
    auto environment = keyring.bus.environment();
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = keyring.bus.address(); // a bus without Avahi
    auto checks = examined(environment);
    EXPECT_EQ(checks.size(), 8U);
    for (const auto* const name : {"models", "bundles", "session bus", "system bus", "keyring"})
        EXPECT_EQ(checks[name]["good"], true) << checks[name];
    EXPECT_EQ(checks["avahi"]["good"], false);

    keyring.program().signal(SIGSTOP);
    EXPECT_NE(examined(environment)["keyring"]["message"].get<std::string>().find("does not answer"),
              std::string::npos);
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
    checks = examined(environment);
    EXPECT_EQ(checks["keyring"]["good"], false);
    EXPECT_EQ(checks["session bus"]["good"], false);
}

} // namespace
