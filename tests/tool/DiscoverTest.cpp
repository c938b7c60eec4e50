#include <signal.h>

#include "ToolFixture.h"
#include "support/AvahiFixture.h"

namespace {

class Discover : public ToolTest {
protected:
    /// What a line of --follow says: "found Office", "source Rendezvous", "end".
    static std::string event(const std::optional<std::string>& line)
    {
        const auto object = parseObject(line.value_or("nothing"));
        if (object.is_null())
            return "?";
        auto text = object.value("event", "?");
        if (object.contains("service"))
            text += " " + object["service"].value("deviceName", "?");
        if (object.contains("source"))
            text += " " + object["source"].value("type", "?") + " " + object["source"]["code"].dump();
        return text;
    }
};

} // namespace

TEST_F(Discover, TellsFindsAndWhatBecameOfEachSource)
{
    const auto found = json({"discover", "--types", "Simulated,Bluetooth", "--timeout", "2"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.json["services"].size(), 3u);
    EXPECT_EQ(found.json["services"][0]["vendorName"], "QL");
    EXPECT_EQ(found.json["services"][0]["modelName"], "Aurora 210");
    ASSERT_EQ(found.json["sources"].size(), 2u);
    EXPECT_EQ(found.json["sources"][0]["state"], "finished");
    EXPECT_EQ(found.json["sources"][0]["finds"], 3);
    EXPECT_EQ(found.json["sources"][1]["state"], "missing");

    const auto none = json({"discover", "--types", "Bluetooth", "--timeout", "0.1"});
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.json["error"]["code"], 4);
    EXPECT_EQ(none.json["sources"][0]["state"], "missing");
    const auto failed = json({"discover", "--types", "Rendezvous", "--channel", "Fax", "--timeout", "0.3"});
    EXPECT_EQ(failed.status, 4);
    EXPECT_EQ(failed.json["sources"][0]["state"], "failed");
    EXPECT_EQ(failed.json["sources"][0]["code"], 2);
    EXPECT_EQ(dmf({"discover", "--timeout", "0"}).status, 2);

    Process interrupted(command({"discover", "--types", "Simulated", "--timeout", "30"}));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(interrupted.readLine().value_or("").starts_with("simulated://"));
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait().status, 130);
}

TEST_F(Discover, ListsDevicesWithTheirWays)
{
    const auto listed = json({"devices", "--types", "Simulated", "--timeout", "1"});
    EXPECT_EQ(listed.status, 0) << listed.err;
    ASSERT_EQ(listed.json["devices"].size(), 3u);
    const auto& device = listed.json["devices"][0];
    EXPECT_EQ(device["modelName"], "Aurora 210");
    ASSERT_EQ(device["ways"].size(), 1u);
    EXPECT_EQ(device["ways"][0]["uri"], device["best"]["uri"]);
    EXPECT_EQ(json({"devices", "--types", "None", "--timeout", "0.1"}).status, 4);
}

TEST_F(Discover, FollowsWhatIsOnTheNetwork)
{
    if (const auto problem = AvahiFixture::problem(); !problem.empty())
        GTEST_SKIP() << problem;
    AvahiFixture avahi;
    Process follow(command({"--json", "discover", "--types", "Rendezvous", "--follow"}));
    EXPECT_EQ(event(follow.readLine()), "source Rendezvous 1");
    ASSERT_TRUE(avahi.start());
    // The missing daemon may be seen on the way.
    auto line = event(follow.readLine());
    if (line == "source Rendezvous 2")
        line = event(follow.readLine());
    EXPECT_EQ(line, "source Rendezvous null");
    auto office = avahi.publish("Office", "_ipp._tcp", 631, {"usb_MFG=QL", "usb_MDL=Model 9"});
    ASSERT_TRUE(office);
    EXPECT_EQ(event(follow.readLine()), "found Office");

    const auto found = dmf({"discover", "--types", "Rendezvous", "--timeout", "3"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out, "dnssd://Office._ipp._tcp.local./?bidi  (QL Model 9)\n");
    EXPECT_EQ(found.err, "Rendezvous: 1 find\n");

    office = nullptr;
    EXPECT_EQ(event(follow.readLine()), "lost Office");
    follow.signal(SIGINT);
    EXPECT_EQ(event(follow.readLine()), "end");
    EXPECT_EQ(follow.wait().status, 130);
}
