#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include <dmf/ADMConnectionProvider.h>
#include <dmf/DMKeys.h>

#include "../../socket/tests/Peer.h"
#include "../LpdDevice.h"
#include "../LpdProvider.h"
#include "support/ChannelDelegate.h"
#include "support/FakeServiceInfo.h"
#include "support/Process.h"
#include "support/Stopwatch.h"
#include "support/TurnUntil.h"

using dmf::Data;
using dmf::Dictionary;
using dmf::lpd::LpdChannel;
using dmf::lpd::LpdDevice;

namespace {

/// What a print server was told.
struct Received {
    std::string queue, control, controlName, document, dataName;
    bool isWhole = false;
};

std::string line(Conversation& far)
{
    std::string text;
    for (std::string letter; !(letter = far.receive(1)).empty() && letter != "\n";)
        text += letter;
    return text;
}

/// A server that takes jobs, and answers the given byte, if any, at a step: 0 the queue, 1 and 2 the control file, 3
/// and 4 the document.
class Server {
public:
    explicit Server(std::map<int, std::string> answers = {})
        : answers_(std::move(answers)), peer_([this](Conversation& far) { serve(far); })
    {
    }
    Received received() const
    {
        std::lock_guard guard(lock_);
        return received_;
    }
    dmf::socket::Endpoint endpoint() const { return peer_.endpoint(); }

private:
    std::string answer(int step) const
    {
        const auto found = answers_.find(step);
        return found == answers_.end() ? std::string(1, '\0') : found->second;
    }
    void serve(Conversation& far)
    {
        const auto question = line(far);
        if (question.starts_with('\3')) {
            far.send(question.substr(1) + " is ready\n");
            return;
        }
        Received job;
        job.queue = question.empty() ? "" : question.substr(1);
        far.send(answer(0));
        for (int part = 0; part < 2; ++part) {
            const auto head = line(far);
            const auto blank = head.find(' ');
            if (blank == std::string::npos)
                break;
            far.send(answer(1 + 2 * part));
            const auto size = std::stoul(head.substr(1, blank - 1));
            auto content = far.receive(size + 1);
            const bool isWhole = content.size() == size + 1 && content.back() == '\0';
            if (isWhole)
                content.pop_back();
            (head[0] == '\2' ? job.control : job.document) = content;
            (head[0] == '\2' ? job.controlName : job.dataName) = head.substr(blank + 1);
            job.isWhole = isWhole && part == 1;
            if (isWhole)
                far.send(answer(2 + 2 * part));
        }
        std::lock_guard guard(lock_);
        received_ = job;
        if (answer(4).empty())
            far.stayQuiet();
    }

    const std::map<int, std::string> answers_;
    mutable std::mutex lock_;
    Received received_; // guarded by lock_
    Peer peer_;
};

struct LpdClient {
    explicit LpdClient(const dmf::socket::Endpoint& endpoint, Dictionary params = {})
        : device(std::make_shared<LpdDevice>(endpoint, Dictionary(), "", "raw")),
          info(std::make_shared<FakeServiceInfo>(device)),
          channel(ADMDuplexDataChannelBase::initWithServiceInfo<LpdChannel>(info, "Print"))
    {
        info->setConnectionParams(params);
    }
    std::shared_ptr<LpdDevice> device;
    std::shared_ptr<FakeServiceInfo> info;
    std::shared_ptr<LpdChannel> channel;
};

std::filesystem::path testFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "dmf-lpd-XXXXXX").string();
    return ::mkdtemp(pattern.data());
}

bool arrives(const Server& server, const std::string& document)
{
    return turnUntil([&] { return server.received().isWhole && server.received().document == document; });
}

} // namespace

TEST(Lpd, SendsAJobOfUnknownLengthOnceItsEndIsSaid)
{
    Server server;
    LpdClient client(server.endpoint());
    ASSERT_TRUE(client.channel->open());
    EXPECT_EQ(written(*client.channel, Data::fromText("first, ")), "done");
    EXPECT_EQ(written(*client.channel, Data::fromText("second")), "done");
    Dictionary error;
    EXPECT_TRUE(client.channel->finishWriting(10, &error)) << error.description();
    EXPECT_TRUE(arrives(server, "first, second"));
    const auto job = server.received();
    EXPECT_EQ(job.queue, "raw");
    EXPECT_EQ(job.controlName.substr(0, 3), "cfA");
    EXPECT_EQ(job.dataName.substr(0, 3), "dfA");
    EXPECT_EQ(job.controlName.substr(2), job.dataName.substr(2));
    EXPECT_NE(job.control.find("\nl" + job.dataName + "\n"), std::string::npos) << job.control;
    EXPECT_EQ(job.control[0], 'H');
    EXPECT_NE(job.control.find("\nP"), std::string::npos);
    EXPECT_EQ(received(*client.channel, 10), " 5/1:0") << "nothing comes back but the end";
    client.channel->close();
}

TEST(Lpd, StreamsADocumentWhoseLengthIsKnownAndHoldsToIt)
{
    const std::string document(300'000, 'x');
    {
        Server server;
        LpdClient client(server.endpoint(), {{"DocumentLength", dmf::Value(std::to_string(document.size()))}});
        ASSERT_TRUE(client.channel->open());
        EXPECT_EQ(written(*client.channel, Data::fromText(document)), "done");
        EXPECT_TRUE(client.channel->finishWriting(10, nullptr));
        EXPECT_TRUE(arrives(server, document));
        client.channel->close();
    }
    Server server;
    LpdClient client(server.endpoint(), {{"DocumentLength", 10}});
    ASSERT_TRUE(client.channel->open());
    EXPECT_EQ(written(*client.channel, Data::fromText("short")), "done");
    Dictionary error;
    EXPECT_FALSE(client.channel->finishWriting(10, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "6/2:0");
    client.channel->close();
    EXPECT_FALSE(server.received().isWhole) << "a document that is cut short is none";
    ASSERT_TRUE(client.channel->open());
    EXPECT_EQ(written(*client.channel, Data::fromText("too much of it")), "2/2:10");
    client.channel->close();
}

TEST(Lpd, ClosingPrintsWhatWasWrittenAndReleasingDoesNot)
{
    Server server;
    const std::string large(4'000'000, 'y');
    {
        LpdClient client(server.endpoint());
        ASSERT_TRUE(client.channel->open());
        EXPECT_EQ(written(*client.channel, Data::fromText(large)), "done");
        client.channel->close();
    }
    EXPECT_TRUE(arrives(server, large));

    std::promise<std::string> got;
    Peer quiet([&](Conversation& far) {
        far.receive(5); // \2raw and the end of the line
        far.send(std::string(1, '\0'));
        got.set_value(far.receiveAll());
    });
    {
        LpdClient client(quiet.endpoint());
        ASSERT_TRUE(client.channel->open());
        EXPECT_EQ(written(*client.channel, Data::fromText("secret")), "done");
    }
    EXPECT_EQ(got.get_future().get(), "") << "a channel that nobody closed has no document";
}

TEST(Lpd, RefusalsAndServersThatSayNothingEndInTheirTime)
{
    for (const auto refusal : {"\1", "\2", "\3", "\x7f"}) {
        Server atTheQueue({{0, refusal}});
        EXPECT_FALSE(LpdClient(atTheQueue.endpoint()).channel->open());
        for (int step = 1; step <= 4; ++step) {
            Server server({{step, refusal}});
            LpdClient client(server.endpoint());
            ASSERT_TRUE(client.channel->open());
            EXPECT_EQ(written(*client.channel, Data::fromText("page")), "done");
            Dictionary error;
            EXPECT_FALSE(client.channel->finishWriting(10, &error)) << "step " << step;
            EXPECT_EQ(RecordingDelegate::describe(error), "6/2:0");
        }
    }
    Server silent({{4, ""}});
    LpdClient client(silent.endpoint());
    ASSERT_TRUE(client.channel->open());
    EXPECT_EQ(written(*client.channel, Data::fromText("page")), "done");
    Dictionary error;
    EXPECT_FALSE(client.channel->finishWriting(0.2, &error));
    EXPECT_EQ(RecordingDelegate::describe(error), "1/2:0") << "the time-out is kept, and it may be tried again";
    const Stopwatch watch;
    client.channel->close();
    EXPECT_LT(watch.seconds(), 10);

    // Twice as many acknowledgements as were asked for, and a server that hangs up.
    Server chatty({{0, std::string(2, '\0')}});
    LpdClient other(chatty.endpoint());
    if (other.channel->open()) {
        EXPECT_NE(written(*other.channel, Data::fromText("page")), "done");
    }
    Peer gone([](Conversation& far) {
        far.receive(5);
        far.send(std::string(1, '\0'));
        far.reset();
    });
    LpdClient lost(gone.endpoint());
    if (lost.channel->open()) {
        EXPECT_TRUE(turnUntil([&] { return written(*lost.channel, Data::fromText("page")) != "done"; }));
    }
}

TEST(Lpd, ClosingEndsAnOpeningThatWaits)
{
    const auto silent = Peer(sayNothing);
    LpdClient client(silent.endpoint());
    std::thread closing([&] {
        EXPECT_FALSE(client.channel->isOpened());
        client.channel->close();
    });
    closing.join();
    auto opening = std::async(std::launch::async, [&] { return client.channel->open(); });
    while (opening.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
        client.channel->close();
    EXPECT_FALSE(opening.get());
}

// The field's own server, with a queue whose filter keeps what it gets. It reads one folder only, so it sees the test's
// in its place.
TEST(Lpd, PrintsOnARealServer)
{
    if (::access("/usr/sbin/lpd", X_OK) != 0 || ::geteuid() != 0)
        GTEST_SKIP() << "needs lprng and the right to give it a folder of its own";
    const std::filesystem::path folder = testFolder();
    const auto port = std::to_string(unusedPort());
    const auto write = [&](const char* name, const std::string& text) { std::ofstream(folder / name) << text; };
    write("lpd.conf", "lpd_listen_port=127.0.0.1%" + port + "\nunix_socket_path=" + (folder / "socket").string() +
                          "\nlockfile=" + (folder / "lock").string() +
                          "\nprintcap_path=" + (folder / "printcap").string() + "\nuser=lp\ngroup=lp\n");
    write("printcap", "raw:\\\n :lp=" + (folder / "device").string() + ":\\\n :sd=" + (folder / "spool").string() +
                          ":\\\n :filter=" + (folder / "filter").string() + ":\\\n :force_localhost@:sh\n");
    write("filter", "#!/bin/sh\nexec cat >" + (folder / "printed").string() + "\n");
    write("device", "");
    const auto run = "cp /etc/lprng/lpd.perms " + folder.string() + " && chmod 755 " + (folder / "filter").string() +
                     " && chown -R lp:lp " + folder.string() + " && mount --bind " + folder.string() +
                     " /etc/lprng && exec lpd -F";
    std::filesystem::create_directory(folder / "spool");
    Process server({"setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "sh", "-c", run});

    const dmf::socket::Endpoint endpoint{"", {"127.0.0.1"}, static_cast<std::uint16_t>(std::stoi(port))};
    LpdClient client(endpoint);
    ASSERT_TRUE(turnUntil([&] { return client.device->isReachable(); })) << server.wait().err;
    ASSERT_TRUE(client.channel->open());
    const std::string document = "\x1b%-12345X one page\n";
    EXPECT_EQ(written(*client.channel, Data::fromText(document)), "done");
    Dictionary error;
    EXPECT_TRUE(client.channel->finishWriting(20, &error)) << error.description();
    client.channel->close();
    EXPECT_TRUE(turnUntil([&] {
        std::ifstream printed(folder / "printed", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(printed), {}) == document;
    }));
    EXPECT_NE((*client.device->retrieveParameters({}, nullptr)[kParamsProp].asDictionary())["QueueState"].description(),
              "(null)");

    const auto unknown = std::make_shared<LpdDevice>(endpoint, Dictionary(), "", "nosuch");
    LpdClient refused(endpoint);
    refused.info->setDevice(unknown);
    EXPECT_FALSE(refused.channel->open());
    server.signal(SIGTERM);
    server.wait();
    std::filesystem::remove_all(folder);
}

TEST(Lpd, NamesTheQueueAndTellsItsState)
{
    const auto queue = [](const char* uri, Dictionary params = {}) {
        return dmf::lpd::queueFrom({{std::string(kURIProp), uri}, {std::string(kParamsProp), params}});
    };
    EXPECT_EQ(queue("lpd://host/raw"), "raw");
    EXPECT_EQ(queue("lpd://host:515/Office%20One/x?&vendor=QL&product=Aurora"), "Office One");
    EXPECT_EQ(queue("lpd://host"), "lp");
    EXPECT_EQ(queue("lpd://host/?bidi"), "lp");
    EXPECT_EQ(queue("lpd://host/raw", {{"Queue", "text"}}), "text");

    Server server;
    const auto device = std::make_shared<LpdDevice>(server.endpoint(), Dictionary(), "", "raw");
    EXPECT_TRUE(device->isReachable());
    const auto told = device->retrieveParameters({}, nullptr);
    EXPECT_EQ((*told[kParamsProp].asDictionary())["QueueState"], "raw is ready");

    Peer garbage([](Conversation& far) {
        line(far);
        far.send(std::string(100'000, '\x1b'));
    });
    const auto other = std::make_shared<LpdDevice>(garbage.endpoint(), Dictionary(), "", "raw");
    EXPECT_FALSE(other->retrieveParameters({}, nullptr)[kParamsProp].asDictionary()->contains("QueueState"));
}
