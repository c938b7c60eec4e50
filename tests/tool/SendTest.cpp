#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <stdexcept>

#include "../../bundles/socket/tests/Peer.h"
#include "ToolFixture.h"

namespace {

// A device of `dmf simulate`, ready when made.
class Device {
public:
    explicit Device(const std::vector<std::string>& options = {}) : process_(command(options))
    {
        uri = process_.readLine().value_or("");
    }
    /// The URI of a device that has gone.
    static std::string gone()
    {
        Device device;
        device.end(SIGTERM);
        return device.uri;
    }
    Process::Result end(int signal = SIGINT)
    {
        process_.signal(signal);
        return process_.wait();
    }
    bool tells(const std::string& text) { return process_.waitForError(text); }

    std::string uri;

private:
    static std::vector<std::string> command(std::vector<std::string> options)
    {
        options.insert(options.begin(), {DMF_BUILD_FOLDER "/bin/dmf", "simulate"});
        return options;
    }
    Process process_;
};

// A device that takes one connection, and then listens no more.
class OneConnectionDevice {
public:
    OneConnectionDevice()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener_, name, length) != 0 || ::listen(listener_, 1) != 0 ||
            ::getsockname(listener_, name, &length) != 0)
            throw std::runtime_error("no loopback");
        uri = "socket://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "?vendor=QL&product=One";
        content_ = std::async(std::launch::async, [this] { return takeOne(); });
    }
    // What came over its one connection; waits for its end.
    std::size_t bytes() { return content_.get(); }

    std::string uri;

private:
    std::size_t takeOne() const
    {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        ::close(listener_);
        std::size_t total = 0;
        char buffer[65536];
        for (ssize_t got = 0; (got = ::read(socket, buffer, sizeof buffer)) > 0;)
            total += static_cast<std::size_t>(got);
        ::close(socket);
        return total;
    }

    const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::future<std::size_t> content_;
};

class Send : public ToolTest {
protected:
    // A megabyte and a bit, so that it does not fit into buffers on the way.
    std::string bigFile() const { return write("big", std::string(5'000'000, 'x')); }
};

} // namespace

TEST_F(Send, AFileArrivesWhole)
{
    Device device;
    ASSERT_TRUE(device.uri.starts_with("socket://127.0.0.1:")) << device.uri;
    const auto result = json({"send", device.uri, bigFile()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.json["bytes"], 5'000'000);
    EXPECT_TRUE(device.tells("closed after 5.0 MB"));
    const auto empty = json({"send", device.uri});
    EXPECT_EQ(empty.status, 0) << empty.err;
    EXPECT_EQ(empty.json["bytes"], 0);
    EXPECT_EQ(device.end().status, 130);
}

TEST_F(Send, AJobIsOneConnection)
{
    OneConnectionDevice device;
    const auto result = json({"send", device.uri, bigFile()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(device.bytes(), 5'000'000u);
}

TEST_F(Send, StandardInputIsSentAndTheAnswerPrintedEvenWhileInputIsStillOpen)
{
    Device device({"--answer", "READY\\r\\n"});
    const auto result = dmf({"send", device.uri, "--answer", "--timeout", "2"}, "hello");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "READY\r\n");
    EXPECT_NE(result.err.find("5 bytes"), std::string::npos);
    EXPECT_EQ(json({"send", device.uri, "--answer", "--timeout", "2"}, "hello").json["answer"], "READY\r\n");

    Process sending(command({"send", device.uri, "--answer", "--timeout", "2"}));
    ASSERT_TRUE(sending.write("x"));
    EXPECT_EQ(sending.readLine(), "READY\r");
    EXPECT_EQ(sending.wait().status, 0);
}

TEST_F(Send, ADeviceThatNeverReadsEndsInATimeOutAndABrokenConnectionIsAFailure)
{
    Device deaf({"--never-read"});
    const auto stuck = json({"send", deaf.uri, bigFile(), "--timeout", "0.5"});
    EXPECT_EQ(stuck.status, 3) << stuck.err;
    EXPECT_EQ(stuck.json["error"]["code"], 3);
    EXPECT_LT(stuck.json["bytes"], 5'000'000);

    Device dropping({"--drop-after", "100000"});
    const auto broken = json({"send", dropping.uri, bigFile()});
    EXPECT_EQ(broken.status, 1) << broken.err;
    EXPECT_LT(broken.json["bytes"], 5'000'000);
}

TEST_F(Send, UnreachableDevicesAndBadInputAreTold)
{
    const std::string gone = Device::gone();
    EXPECT_EQ(json({"send", gone, bigFile()}).status, 1);
    EXPECT_EQ(json({"send", "bluetooth://00.11.22.33.44.55"}, "x").status, 4); // no plug-in serves it
    EXPECT_EQ(json({"send", "nonsense"}, "x").status, 1);
    EXPECT_EQ(json({"send", gone, folder / "missing"}).status, 1);
    EXPECT_EQ(json({"send", gone, folder}).status, 1);
}

TEST_F(Send, CtrlCEndsItWherever)
{
    Device stuck({"--never-read"});
    Process writing(command({"send", stuck.uri, bigFile()}));
    EXPECT_TRUE(stuck.tells("connected"));
    writing.signal(SIGINT);
    const auto result = writing.wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_NE(result.err.find("interrupted"), std::string::npos);

    Device idle;
    Process reading(command({"send", idle.uri})); // waits for standard input
    EXPECT_TRUE(idle.tells("connected"));
    reading.signal(SIGTERM);
    EXPECT_EQ(reading.wait().status, 130);
    EXPECT_EQ(idle.end(SIGHUP).status, 130);
}

using Resolve = Send;

TEST_F(Resolve, ADeviceThatAnswersIsResolvedAtTheFirstAttempt)
{
    Device device;
    const auto result = json({"resolve", device.uri, "--timeout", "10"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.json["state"], "resolved");
    EXPECT_EQ(result.json["info"]["modelName"], "Aurora 450n");
    ASSERT_EQ(result.json["attempts"].size(), 1u);
    EXPECT_EQ(result.json["attempts"][0]["found"], true);
}

TEST_F(Resolve, AMissingOneTimesOutAndShowsEachAttemptAndCtrlCEndsIt)
{
    const std::string gone = Device::gone();
    const auto result = json({"resolve", gone, "--timeout", "1.3"});
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_EQ(result.json["state"], "failed");
    EXPECT_GE(result.json["attempts"].size(), 1u);
    EXPECT_EQ(json({"resolve", "bluetooth://00.11.22.33.44.55", "--timeout", "5"}).status, 4);

    Process resolving(command({"resolve", gone, "--json"}));
    EXPECT_TRUE(resolving.waitForError("attempt 1"));
    resolving.signal(SIGINT);
    const auto interrupted = resolving.wait();
    EXPECT_EQ(interrupted.status, 130);
    EXPECT_EQ(parseObject(interrupted.out)["error"]["code"], 130);
}

TEST_F(Send, ShippedPlugInsAreLoadedAndTheSimulatedDeviceNeedsNoInstallation)
{
    const auto result = json({"plugins"});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const auto& bundle : result.json["bundles"])
        EXPECT_EQ(bundle["state"], "loaded") << bundle;
    EXPECT_GE(result.json["bundles"].size(), 3u);
    const auto sent =
        json({"send", "simulated://QLDMF/v=1&connectionType=Simulated&vendorName=QL&modelName=Aurora%20450n"}, "hello");
    EXPECT_EQ(sent.status, 0) << sent.err;
    EXPECT_EQ(sent.json["bytes"], 5);
}

// One time-out for finding the device and connecting to it, which the device search is not left out of.
TEST_F(Send, EndsAtItsTimeOutAndSaysWhatTimedOut)
{
    const auto silent = Peer::silent();
    const auto uri = "socket://127.0.0.1:" + std::to_string(silent->port()) + "/?vendor=QL&product=Aurora%20450n";
    const auto sent = dmf({"send", uri, "/dev/null", "--timeout", "0.3"});
    EXPECT_EQ(sent.status, 3);
    EXPECT_EQ(sent.err, "dmf: the device was not found within 0.3 s\n");
}
