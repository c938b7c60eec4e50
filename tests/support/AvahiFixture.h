#pragma once

#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Process.h"

/// A program that says a word on standard error once it is ready, and that is killed at the end of this object (or of
/// the test program, however that ends).
class WatchedProgram : public Process {
public:
    WatchedProgram(std::vector<std::string> command, std::string word)
        : Process(endingWithUs(std::move(command))), word_(std::move(word))
    {
    }
    /// True once it has said the word; false when it ended before, or takes too long.
    bool isReady() { return waitForError(word_); }

private:
    static std::vector<std::string> endingWithUs(std::vector<std::string> command)
    {
        command.insert(command.begin(), {"setpriv", "--pdeathsig", "KILL"});
        return command;
    }
    const std::string word_;
};

/// A system bus and an Avahi daemon of the test's own. The daemon runs in a network of its own, with a loopback
/// interface and a cable to nowhere (IPv4 and IPv6), and with a run folder of its own, so that several go side by side
/// and the machine's own stays as it is. Bus and daemon start when asked to; programs find the bus by
/// DBUS_SYSTEM_BUS_ADDRESS, which is set here.
class AvahiFixture {
public:
    AvahiFixture()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-avahi-XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directory(folder_ / "services");
        write("bus.conf", "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
                          "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\"><busconfig>"
                          "<type>system</type><listen>unix:path=" +
                              (folder_ / "bus").string() +
                              "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                              "<allow own=\"*\"/><allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                              "</policy></busconfig>");
        write("avahi.conf", "[server]\nhost-name=peer1\nallow-interfaces=lo,cable0\nratelimit-interval-usec=1000000\n"
                            "ratelimit-burst=1000\n[publish]\npublish-workstation=no\npublish-hinfo=no\n");
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (folder_ / "bus").string()).c_str(), 1);
    }
    ~AvahiFixture()
    {
        daemon_ = nullptr;
        bus_ = nullptr;
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    AvahiFixture(const AvahiFixture&) = delete;
    AvahiFixture& operator=(const AvahiFixture&) = delete;

    /// Why this machine cannot run the fixture; empty when it can.
    static std::string problem()
    {
        for (const char* const program : {"avahi-daemon", "avahi-publish-service", "dbus-daemon", "ip", "nsenter"})
            if (!run({"sh", "-c", std::string("command -v ") + program}))
                return std::string(program) + " is not installed";
        if (!run({"unshare", "-n", "-m", "sh", "-c", "mount -t tmpfs tmpfs /run && " + std::string(kMakeCable)}))
            return "namespaces, or network interfaces in them, are not permitted here";
        return {};
    }

    bool startBus()
    {
        bus_ = std::make_unique<WatchedProgram>(
            std::vector<std::string>{"dbus-daemon", "--config-file=" + (folder_ / "bus.conf").string(), "--nofork",
                                     "--print-address=2"},
            "unix:");
        return bus_->isReady();
    }
    void stopBus() { bus_ = nullptr; }

    bool startDaemon()
    {
        // Without its IPv6 address the loopback interface does not complain at every message.
        const auto script = "mount --make-rprivate / && mount -t tmpfs tmpfs /run && mount --bind " +
                            (folder_ / "services").string() + " /etc/avahi/services && ip link set lo up && " +
                            "ip -6 addr del ::1/128 dev lo && " + kMakeCable + " && exec avahi-daemon -f " +
                            (folder_ / "avahi.conf").string() +
                            " --no-drop-root --no-chroot --no-proc-title --no-rlimits";
        daemon_ = std::make_unique<WatchedProgram>(std::vector<std::string>{"unshare", "-n", "-m", "sh", "-c", script},
                                                   "Server startup complete");
        return daemon_->isReady();
    }
    /// By SIGKILL: without a goodbye.
    void stopDaemon() { daemon_ = nullptr; }
    bool start() { return startBus() && startDaemon(); }
    /// Keeps the daemon from doing anything, or lets it go on; the bus knows nothing of it.
    void setHung(bool isHung) const { ::kill(daemon_->pid(), isHung ? SIGSTOP : SIGCONT); }

    /// Takes the cable's end away or brings it back.
    bool setCable(bool isUp) const
    {
        return run({"nsenter", "-t", std::to_string(daemon_->pid()), "-n", "ip", "link", "set", "cable0",
                    isUp ? "up" : "down"});
    }

    using Publication = std::unique_ptr<WatchedProgram>;
    /// Announces a service until the result goes; empty when that failed.
    Publication publish(const std::string& name, const std::string& type, int port,
                        const std::vector<std::string>& txt = {}) const
    {
        auto publication = beginToPublish(name, type, port, txt);
        return publication->isReady() ? std::move(publication) : nullptr;
    }
    /// The same without waiting until it is announced.
    Publication beginToPublish(const std::string& name, const std::string& type, int port,
                               const std::vector<std::string>& txt = {}) const
    {
        std::vector<std::string> command{"avahi-publish-service", "--", name, type, std::to_string(port)};
        command.insert(command.end(), txt.begin(), txt.end());
        return std::make_unique<WatchedProgram>(std::move(command), "Established");
    }
    /// A service that the daemon announces by itself whenever it starts. The name in XML.
    void announceAlways(const std::string& name, const std::string& type, int port) const
    {
        static std::atomic<int> count{0};
        write("services/" + std::to_string(++count) + ".service",
              "<service-group><name>" + name + "</name><service><type>" + type + "</type><port>" +
                  std::to_string(port) + "</port></service></service-group>");
    }

private:
    static constexpr const char* kMakeCable = "ip link add cable0 type veth peer name cable1 && "
                                              "ip addr add 10.77.0.1/24 dev cable0 && ip link set cable0 up && "
                                              "ip link set cable1 up";

    static bool run(const std::vector<std::string>& command) { return Process::run(command).status == 0; }
    void write(const std::string& name, const std::string& content) const
    {
        std::ofstream(folder_ / name, std::ios::binary) << content;
    }

    std::filesystem::path folder_;
    std::unique_ptr<WatchedProgram> bus_;
    std::unique_ptr<WatchedProgram> daemon_;
};
