#include "../transport/Connect.h"

#include <gmock/gmock.h>

#include <dmf/DMKeys.h>

#include "../transport/Connection.h"
#include "../transport/NetworkDevice.h"
#include "Peer.h"

using dmf::Dictionary;
using dmf::socket::Clock;
using dmf::socket::Endpoint;
using dmf::socket::NetworkDevice;
using dmf::socket::Outcome;
using testing::ElementsAre;

namespace {
dmf::socket::Connected connectWithin(const Endpoint& endpoint, std::chrono::milliseconds limit,
                                     const dmf::socket::CancelQuestion& isCancelled = {})
{
    return connectTo(endpoint, Clock::now() + limit, isCancelled);
}

class CancellingHandler : public IDMDeviceHandler {
public:
    bool isCanceledForDevice(const IDMDevice*) override { return true; }
};
} // namespace

TEST(SocketEndpoint, ReadsConnectionParameters)
{
    const auto plain =
        Endpoint::fromParameters({{"IPAddress", "10.0.0.5"}, {"AllIPAddresses", dmf::Array{"10.0.0.5"}}});
    ASSERT_TRUE(plain);
    EXPECT_THAT(plain->addresses, ElementsAre("10.0.0.5"));
    EXPECT_EQ(plain->port, 9100);
    const auto zoned = Endpoint::fromParameters({{"IPAddress", "fe80::1%25lo"}, {"IPPort", "515"}});
    EXPECT_THAT(zoned->addresses, ElementsAre("fe80::1%lo"));
    EXPECT_EQ(zoned->port, 515);
    EXPECT_EQ(Endpoint::fromParameters({{"HostName", "printer"}, {"IPPort", 80}})->hostName, "printer");

    EXPECT_FALSE(Endpoint::fromParameters({{"IPPort", "9100"}}));
    for (const char* const port : {"", "0", "65536", "-1", "91oo", "9100 ", "99999999999999999999"})
        EXPECT_FALSE(Endpoint::fromParameters({{"HostName", "printer"}, {"IPPort", port}})) << port;
}

TEST(SocketEndpoint, FindsAddressesOfBothFamiliesByTurns)
{
    const auto texts = [](const Endpoint& endpoint) {
        std::vector<dmf::socket::Address> found;
        std::vector<std::string> list;
        if (findAddresses(endpoint, Clock::now() + std::chrono::seconds(10), {}, found) == Outcome::done)
            for (const auto& address : found)
                list.push_back(address.text());
        return list;
    };
    EXPECT_THAT(texts({"", {"10.0.0.1", "10.0.0.2", "::1", "10.0.0.1", "fe80::2%lo"}, 1}),
                ElementsAre("10.0.0.1", "::1", "10.0.0.2", "fe80::2%lo"));
    EXPECT_THAT(texts({"127.0.0.9", {}, 1}), ElementsAre("127.0.0.9"));
    EXPECT_THAT(texts({"localhost", {}, 1}), testing::Contains("127.0.0.1"));
    EXPECT_THAT(texts({"", {"not an address", "1.2.3"}, 1}), testing::Not(testing::Contains("not an address")));
}

TEST(SocketEndpoint, ANameThatHangsDoesNotUseUpTheTime)
{
    bool mayAnswer = false;
    const auto name = [&](const std::string&, std::uint16_t, Clock::time_point limit, const auto&, auto& found) {
        if (mayAnswer)
            found = {dmf::socket::Address()};
        return mayAnswer || Clock::now() < limit - std::chrono::seconds(2) ? Outcome::done : Outcome::timedOut;
    };
    std::vector<dmf::socket::Address> found;
    const auto look = [&](const Endpoint& endpoint) {
        return findAddresses(endpoint, Clock::now() + std::chrono::seconds(20), {}, found, name);
    };
    EXPECT_EQ(look({"printer", {"10.0.0.1"}, 1}), Outcome::done); // with most of the time left
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].text(), "10.0.0.1");
    mayAnswer = true;
    EXPECT_EQ(look({"printer", {"10.0.0.1"}, 1}), Outcome::done);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[1].text(), "10.0.0.1"); // the name's own come first
}

TEST(SocketConnection, RemembersThatItBroke)
{
    Peer peer([](Conversation& far) {
        far.receive(1);
        far.reset();
    });
    const auto connection =
        dmf::socket::Connection::over(connectWithin(peer.endpoint(), std::chrono::seconds(10)).socket);
    ASSERT_TRUE(connection);
    const dmf::Data byte = dmf::Data::fromText("x");
    // Writing meets the reset; reading must not take what is left for an orderly end.
    while (connection->write(byte.bytes()).status != dmf::ProviderStatus::failed)
        connection->wait({.reading = true, .until = Clock::now() + std::chrono::seconds(1)});
    std::uint8_t space[4];
    EXPECT_EQ(connection->read(space).status, dmf::ProviderStatus::failed);
    EXPECT_EQ(connection->read(space).status, dmf::ProviderStatus::failed);
}

TEST(SocketConnect, TellsHowItEnded)
{
    Peer peer(sayNothing);
    const auto reached = connectWithin(peer.endpoint(), std::chrono::seconds(10));
    EXPECT_EQ(reached.outcome, Outcome::done);
    EXPECT_EQ(reached.address, "127.0.0.1");
    EXPECT_EQ(connectWithin({"", {"127.0.0.1"}, unusedPort()}, std::chrono::seconds(10)).outcome, Outcome::refused);

    const auto silent = Peer::silent();
    const Stopwatch watch;
    EXPECT_EQ(connectWithin(silent->endpoint(), std::chrono::milliseconds(150)).outcome, Outcome::timedOut);
    EXPECT_GE(watch.seconds(), 0.15);
    EXPECT_EQ(connectWithin(silent->endpoint(), std::chrono::seconds(30), [] { return true; }).outcome,
              Outcome::cancelled);
    EXPECT_LT(watch.seconds(), 20);
}

TEST(SocketConnect, TriesEveryAddress)
{
    Peer peer(sayNothing);
    // One that refuses and one that never answers must not keep it from the third.
    const auto silent = Peer::silent("127.0.0.3", peer.port());
    const Stopwatch watch;
    const auto reached =
        connectWithin({"", {"127.0.0.2", "127.0.0.3", "127.0.0.1"}, peer.port()}, std::chrono::seconds(20));
    EXPECT_EQ(reached.address, "127.0.0.1");
    EXPECT_LT(watch.seconds(), 15);
}

TEST(SocketConnect, AnAddressThatFailsOnTheSpotCostsNoTime)
{
    Peer peer(sayNothing);
    const auto silent = Peer::silent("127.0.0.3", peer.port());
    double best = 1; // the second has its turn after a quarter of a second, and the third with it
    for (int i = 0; i < 10 && best > 0.4; ++i) {
        const Stopwatch watch;
        const auto reached =
            connectWithin({"", {"127.0.0.3", "255.255.255.255", "127.0.0.1"}, peer.port()}, std::chrono::seconds(20));
        EXPECT_EQ(reached.address, "127.0.0.1");
        best = std::min(best, watch.seconds());
    }
    EXPECT_LE(best, 0.4);
}

TEST(SocketConnect, ReachesIPv6)
{
    Peer peer(sayNothing, "::1", 0, AF_INET6);
    if (!peer.isListening())
        GTEST_SKIP() << "no IPv6 here";
    EXPECT_EQ(connectWithin(peer.endpoint(), std::chrono::seconds(10)).address, "::1");
}

TEST(SocketDevice, IsMadeOnlyWhenItIsThere)
{
    Peer peer([](Conversation& far) { far.receiveAll(); });
    const Dictionary spec{{"vendorName", "QL"}, {"modelName", "Model 9"}};
    const auto device = NetworkDevice::reach({"localhost", {}, peer.port()}, spec, nullptr);
    ASSERT_TRUE(device);
    EXPECT_TRUE(device->isReachable());
    const auto identity = device->retrieveParameters({}, nullptr);
    EXPECT_EQ(identity["vendorName"], "QL");
    EXPECT_EQ(identity["modelName"], "Model 9");
    EXPECT_EQ(identity["deviceName"], "localhost");
    EXPECT_EQ((*identity["params"].asDictionary())[kIPAddressParam], "127.0.0.1");

    EXPECT_FALSE(NetworkDevice::reach({"", {"127.0.0.1"}, unusedPort()}, spec, nullptr));
    EXPECT_FALSE(NetworkDevice({"", {"127.0.0.1"}, unusedPort()}, spec, "").isReachable());
    const auto silent = Peer::silent();
    const Stopwatch watch;
    EXPECT_FALSE(NetworkDevice::reach(silent->endpoint(), spec, std::make_shared<CancellingHandler>()));
    EXPECT_LT(watch.seconds(), 4);
}
