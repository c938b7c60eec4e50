#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <stdlib.h>

#include "support/Process.h"

/// A session bus of the test's own, in a folder of its own; both end with this object.
class SessionBus {
public:
    /// The program that is called `neverComes` is one that the bus starts and waits for in vain.
    explicit SessionBus(const std::string& neverComes = {})
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-bus-XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directory(folder_ / "services");
        if (!neverComes.empty())
            std::ofstream(folder_ / "services/never.service")
                << "[D-BUS Service]\nName=" << neverComes << "\nExec=/bin/sh -c \"touch "
                << (folder_ / "called").string() << "; exec /usr/bin/dbus-monitor --address " << address()
                << " sender=nobody.at.all\"\n";
        std::ofstream(folder_ / "bus.conf")
            << "<busconfig><type>session</type><listen>" << address() << "</listen><auth>EXTERNAL</auth>"
            << "<servicedir>" << (folder_ / "services").string() << "</servicedir>"
            << "<policy context=\"default\"><allow send_destination=\"*\"/>"
            << "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy>"
            << "<limit name=\"service_start_timeout\">60000</limit></busconfig>";
        daemon_ = std::make_unique<Process>(std::vector<std::string>{"/usr/bin/dbus-daemon",
                                                                     "--config-file=" + (folder_ / "bus.conf").string(),
                                                                     "--nofork", "--print-address=1"});
        if (!daemon_->readLine())
            throw std::runtime_error("the session bus did not start");
    }
    ~SessionBus()
    {
        daemon_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    [[nodiscard]] std::string address() const { return "unix:path=" + (folder_ / "bus").string(); }
    [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
    [[nodiscard]] Process& daemon() { return *daemon_; }
    /// Waits until somebody waits for the program that never comes.
    [[nodiscard]] bool waitUntilCalled() const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (!std::filesystem::exists(folder_ / "called") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return std::filesystem::exists(folder_ / "called");
    }

    /// What programs need to know, so that they use this bus and nothing of the user's.
    [[nodiscard]] Process::Environment environment() const
    {
        return {{"DBUS_SESSION_BUS_ADDRESS", address()},
                {"HOME", folder_.string()},
                {"XDG_DATA_HOME", (folder_ / "data").string()},
                {"XDG_CONFIG_HOME", (folder_ / "config").string()},
                {"XDG_RUNTIME_DIR", folder_.string()},
                {"DISPLAY", ""},
                {"WAYLAND_DISPLAY", ""}};
    }

private:
    std::filesystem::path folder_;
    std::unique_ptr<Process> daemon_;
};

/// Who is there when the keyring's program asks for a password.
enum class Person { nobody, silent, agrees, refuses };

/// The real keyring program on a bus of the test's own, with one unlocked default keyring that is empty.
class KeyringFixture {
public:
    explicit KeyringFixture(Person person = Person::nobody)
        : bus(person == Person::silent ? "org.gnome.keyring.SystemPrompter" : "")
    {
        if (person == Person::agrees || person == Person::refuses) {
            std::vector<std::string> command{DMF_BUILD_FOLDER "/bin/dmf_test_person"};
            if (person == Person::agrees)
                command.emplace_back(kPassword);
            person_ = std::make_unique<Process>(command, bus.environment());
            personsName_ = person_->readLine().value_or("");
            if (personsName_.empty())
                throw std::runtime_error("nobody can be asked: " + person_->wait().err);
        }
        program_ = startProgram("--foreground");
        run({"/usr/bin/gdbus", "wait", "--session", "--timeout", "15", "org.freedesktop.secrets"});
        // The name is there before the keyring is.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (aliasPath() == "/")
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("the keyring did not become ready");
    }

    SessionBus bus;

    [[nodiscard]] Process& program() { return *program_; }
    void lock() { call("/org/freedesktop/secrets", "org.freedesktop.Secret.Service.Lock", "['" + aliasPath() + "']"); }

    /// Gives the exit status and standard output of a program on the fixture's bus.
    Process::Result run(const std::vector<std::string>& command, const std::string& input = {}) const
    {
        return Process::run(command, input, bus.environment());
    }
    /// The password that `secret-tool` finds by attributes and values in turn; nothing when it finds none.
    [[nodiscard]] std::optional<std::string> lookUp(std::vector<std::string> attributes) const
    {
        attributes.insert(attributes.begin(), {"/usr/bin/secret-tool", "lookup"});
        const auto result = run(attributes);
        return result.status == 0 ? std::optional(result.out) : std::nullopt;
    }
    void store(const std::string& label, std::vector<std::string> attributes, const std::string& password) const
    {
        attributes.insert(attributes.begin(), {"/usr/bin/secret-tool", "store", "--label=" + label});
        if (run(attributes, password).status != 0)
            throw std::runtime_error("secret-tool could not store");
    }

private:
    static constexpr const char* kPassword = "password of the keyring";

    [[nodiscard]] Process::Environment environment() const
    {
        auto all = bus.environment();
        if (!personsName_.empty())
            all["GNOME_KEYRING_TEST_PROMPTER"] = personsName_;
        return all;
    }
    std::unique_ptr<Process> startProgram(const std::string& form) const
    {
        auto started = std::make_unique<Process>(
            std::vector<std::string>{"/usr/bin/gnome-keyring-daemon", form, "--unlock", "--components=secrets",
                                     "--control-directory=" + (bus.folder() / "control").string()},
            environment());
        started->write(kPassword);
        started->closeInput();
        return started;
    }
    std::string call(const std::string& path, const std::string& operation, const std::string& argument) const
    {
        return run({"/usr/bin/gdbus", "call", "--session", "--timeout", "10", "-d", "org.freedesktop.secrets", "-o",
                    path, "-m", operation, argument})
            .out;
    }
    /// The path of the default keyring, "/" while there is none.
    std::string aliasPath() const
    {
        const auto answer = call("/org/freedesktop/secrets", "org.freedesktop.Secret.Service.ReadAlias", "default");
        const auto begin = answer.find('/'), end = answer.find('\'', begin);
        return begin == std::string::npos ? "/" : answer.substr(begin, end - begin);
    }

    std::unique_ptr<Process> person_;
    std::string personsName_; // on the bus
    std::unique_ptr<Process> program_;
};
