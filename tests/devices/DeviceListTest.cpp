#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/DeviceList.h>
#include <dmf/platform/Class.h>

#include "devices/DeviceIndex.h"
#include "discovery/FakeBackEnd.h"
#include "support/TurnUntil.h"

DMF_REGISTER_CLASS(FakeServiceDiscovery)
{
    described.implements<IDMServiceDiscovery>(&FakeServiceDiscovery::make);
}

using dmf::internal::DeviceIndex;
using Kind = DeviceIndex::Change::Kind;

namespace {

struct Said {
    std::string uri, type, vendor{}, model{}, serial{}, mac{}, uuid{};
    bool isPort = false;
};

std::shared_ptr<ADMServiceInfo> service(const Said& said)
{
    dmf::Dictionary params;
    for (const auto& [key, text] :
         {std::pair{kSerialNumberParam, said.serial}, {kMACAddressParam, said.mac}, {dmf::kDeviceUUIDParam, said.uuid}})
        if (!text.empty())
            params.set(key, dmf::Value(text));
    if (said.isPort)
        params.set(dmf::kSerialNumberKindParam, "port");
    dmf::Dictionary spec{{std::string(kURIProp), said.uri},
                         {std::string(kConnectionTypeProp), said.type},
                         {std::string(kParamsProp), params}};
    if (!said.vendor.empty())
        spec.set(kVendorNameProp, dmf::Value(said.vendor));
    if (!said.model.empty())
        spec.set(kModelNameProp, dmf::Value(said.model));
    return ADMServiceInfoImp::initWithSpec(spec);
}

dmf::internal::DeviceFacts facts(const Said& said)
{
    return dmf::internal::factsOf(service(said));
}

/// A device's name and its ways' URIs.
std::map<std::string, std::vector<std::string>> listOf(const DeviceIndex& index)
{
    std::map<std::string, std::vector<std::string>> list;
    for (const auto& device : index.devices())
        for (const auto& way : device.ways)
            list[device.name].push_back(way.uri);
    return list;
}

const Said kUsb{"usb://a", "USB", "QL", "Aurora 450n", "SN77", "", ""};
const Said kIp{"socket://a", "IP", "ql", "QL Aurora 450n", "SN77", "00-11-22-33-44-55", ""};
const Said kIpp{"ipp://a", "IPP", "QL", "", "", "", "urn:uuid:E3248000-80CE-11DB-8000-30055C773BCF"};
const Said kDnssd{
    "dnssd://a", "Rendezvous", "QL", "Aurora 450n", "", "001122334455", "e3248000-80ce-11db-8000-30055c773bcf"};
const std::string kName = "ql/aurora%20450n/SN77";

} // namespace

TEST(DeviceIndex, TakesServicesForOneDeviceOnEvidenceOnly)
{
    const struct {
        const char* what;
        Said one, other;
        std::size_t devices;
    } cases[] = {
        {"vendor, model and serial number", kUsb, kIp, 1},
        {"MAC address, however it is written", kIp, kDnssd, 1},
        {"UUID, however it is written", kIpp, kDnssd, 1},
        {"same serial number, another model", kUsb, {"usb://b", "USB", "QL", "Aurora 210", "SN77"}, 2},
        {"same serial number, no model", kUsb, {"usb://b", "USB", "QL", "", "SN77"}, 2},
        {"same vendor and model", {"usb://a", "USB", "QL", "A"}, {"usb://b", "USB", "QL", "A"}, 2},
        {"serial numbers that say nothing",
         {"usb://a", "USB", "QL", "A", "0000"},
         {"usb://b", "USB", "QL", "A", "0000"},
         2},
        {"words for none", {"usb://a", "USB", "QL", "A", "Unknown"}, {"usb://b", "USB", "QL", "A", "unknown"}, 2},
        {"serial numbers that are ports",
         {"usb://a", "USB", "QL", "A", "1-2", "", "", true},
         {"socket://b", "IP", "QL", "A", "1-2"},
         2},
        {"a MAC address that nobody has",
         {"socket://a", "IP", "", "", "", "00:00:00:00:00:00"},
         {"socket://b", "IP", "", "", "", "00:00:00:00:00:00"},
         2},
        {"no MAC address at all",
         {"socket://a", "IP", "", "", "", "00:11:22"},
         {"socket://b", "IP", "", "", "", "00:11:22"},
         2},
    };
    for (const auto& [what, one, other, devices] : cases) {
        DeviceIndex index;
        index.add(facts(one));
        index.add(facts(other));
        EXPECT_EQ(index.devices().size(), devices) << what;
    }
}

TEST(DeviceIndex, NamesADeviceByTheBestThatIsKnownOfIt)
{
    DeviceIndex index;
    EXPECT_EQ(index.add(facts(kIpp)).front().device.name, "uuid:e3248000-80ce-11db-8000-30055c773bcf");
    auto changes = index.add(facts(kDnssd));
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(changes[0].kind, Kind::changed);
    EXPECT_EQ(changes[0].device.name, "mac:00:11:22:33:44:55");
    EXPECT_EQ(changes[0].earlierName, "uuid:e3248000-80ce-11db-8000-30055c773bcf");
    EXPECT_EQ(index.add(facts(kIp)).front().device.name, kName);
    EXPECT_EQ(index.device(kName)->ways.size(), 3U);
    EXPECT_EQ(index.device("uuid:e3248000-80ce-11db-8000-30055c773bcf"), nullptr);
    EXPECT_EQ(index.device(kName)->vendor, "QL");
    EXPECT_EQ(index.device(kName)->model, "Aurora 450n");
    EXPECT_TRUE(index.add(facts(kIp)).empty()) << "nothing new, nothing told";
}

TEST(DeviceIndex, BringsTogetherAndTakesApartByTheServiceInBetween)
{
    DeviceIndex index;
    index.add(facts(kUsb));
    index.add(facts(kDnssd));
    const auto joined = index.add(facts(kIp)); // serial number of the one, MAC address of the other
    ASSERT_EQ(joined.size(), 2U);
    EXPECT_EQ(joined[0].kind, Kind::removed) << "what is gone is told first";
    EXPECT_EQ(joined[1].kind, Kind::changed);
    EXPECT_EQ(listOf(index),
              (std::map<std::string, std::vector<std::string>>{{kName, {"dnssd://a", "socket://a", "usb://a"}}}));
    EXPECT_EQ(index.devices()[0].sharedEvidence().size(), 2U);

    const auto parted = index.remove("socket://a", "");
    ASSERT_EQ(parted.size(), 2U);
    EXPECT_EQ(listOf(index), (std::map<std::string, std::vector<std::string>>{{"mac:00:11:22:33:44:55", {"dnssd://a"}},
                                                                              {kName, {"usb://a"}}}));
    EXPECT_TRUE(index.remove("socket://a", "").empty());
    EXPECT_EQ(index.remove("usb://a", "")[0].kind, Kind::removed);
}

TEST(DeviceIndex, DoubtsDevicesThatShareASerialNumberButNotAModel)
{
    DeviceIndex index;
    EXPECT_EQ(index.add(facts(kUsb))[0].device.suspicion, "");
    const auto changes = index.add(facts({"usb://b", "USB", "QL", "Aurora 210", "SN77"}));
    ASSERT_EQ(changes.size(), 2U) << "both are told of it";
    for (const auto& change : changes)
        EXPECT_EQ(change.device.suspicion, "2 devices say that their serial number is SN77");
    const auto after = index.remove("usb://b", "");
    ASSERT_EQ(after.size(), 2U);
    EXPECT_EQ(index.device(kName)->suspicion, "");
}

// What is listed is what follows from the services that are there, whatever came and went before, and the changes that
// are told lead a client who keeps count to the same list.
TEST(DeviceIndex, ListsTheSameInWhateverOrderServicesComeAndGo)
{
    std::mt19937 random(20261123);
    const auto pick = [&](std::initializer_list<const char*> of) {
        return std::string(*(of.begin() + std::uniform_int_distribution<std::size_t>(0, of.size() - 1)(random)));
    };
    for (int round = 0; round < 60; ++round) {
        std::vector<Said> present;
        for (int number = 0; number < 12; ++number)
            present.push_back({"uri:" + std::to_string(number), pick({"USB", "IP"}), pick({"QL", "ql", ""}),
                               pick({"A", "B", ""}), pick({"S1", "S2", ""}),
                               pick({"001122334455", "001122334456", "", ""}),
                               pick({"e3248000-80ce-11db-8000-30055c773bcf", "", ""})});
        DeviceIndex straight;
        for (int number = 0; number < 8; ++number)
            straight.add(facts(present[static_cast<std::size_t>(number)]));

        DeviceIndex shuffled;
        std::map<std::string, std::size_t> client;
        const auto hear = [&](const DeviceIndex::Changes& changes) {
            for (const auto& change : changes) {
                if (change.kind == Kind::removed) {
                    ASSERT_EQ(client.erase(change.device.name), 1U);
                    continue;
                }
                ASSERT_EQ(client.count(change.device.name),
                          change.kind == Kind::added || change.earlierName != change.device.name ? 0U : 1U);
                client.erase(change.earlierName);
                client[change.device.name] = change.device.ways.size();
            }
        };
        std::shuffle(present.begin(), present.begin() + 8, random);
        std::vector<Said> order = present;
        std::shuffle(order.begin(), order.end(), random);
        for (const Said& said : order)
            hear(shuffled.add(facts(said)));
        for (std::size_t number = 8; number < 12; ++number)
            hear(shuffled.remove(present[number].uri, ""));
        ASSERT_EQ(listOf(shuffled), listOf(straight)) << "round " << round;
        std::map<std::string, std::size_t> listed;
        for (const auto& device : shuffled.devices())
            listed[device.name] = device.ways.size();
        ASSERT_EQ(client, listed) << "round " << round;
    }
}

TEST(DeviceList, TellsDevicesOnTheClientsRunLoop)
{
    DiscoveryHost host;
    const auto list = dmf::DeviceList::withChannelNames({"Print"});
    EXPECT_EQ(dmf::DeviceList::withChannelNames({}), nullptr);
    EXPECT_FALSE(list->start({"Fake"})) << "scheduled nowhere";
    list->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    const auto delegate = std::make_shared<dmf::DeviceListDelegate>();
    std::vector<std::string> heard;
    const auto thread = std::this_thread::get_id();
    const auto hear = [&](const std::string& what) {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        heard.push_back(what);
    };
    delegate->deviceAdded = [&](auto&, const dmf::Device& device) { hear("+" + device.name); };
    delegate->deviceChanged = [&](auto&, const dmf::Device& device, auto&) {
        hear("=" + device.name + " " + std::to_string(device.ways.size()));
    };
    delegate->deviceRemoved = [&](auto&, const dmf::Device& device) { hear("-" + device.name); };
    list->setDelegate(delegate);
    ASSERT_TRUE(list->start({"Fake"}));
    EXPECT_FALSE(list->start({"Fake"})) << "it looks already";
    ASSERT_TRUE(turnUntil([&] { return !host.backEnds.alive().empty(); }));

    const auto backEnd = host.backEnds.alive()[0];
    backEnd->report(service(kUsb));
    backEnd->report(service(kIp));
    backEnd->report(service(kUsb), true);
    ASSERT_TRUE(turnUntil([&] { return heard.size() == 3; }));
    EXPECT_EQ(heard, (std::vector<std::string>{"+" + kName, "=" + kName + " 2", "=" + kName + " 1"}));
    EXPECT_EQ(list->device(kName)->ways[0].uri, "socket://a");

    list->stop();
    EXPECT_EQ(list->devices().size(), 1U) << "they stay listed";
    heard.clear();
    ASSERT_TRUE(list->start({"Fake"}));
    EXPECT_EQ(heard, std::vector<std::string>{"-" + kName}) << "until it looks anew";
    list->stop();
}

TEST(DeviceList, ChoosesTheBestWayToAChannelAndSaysWhy)
{
    DeviceIndex index;
    index.add(facts(kDnssd));
    index.add(facts(kIp));
    index.add(facts(kUsb));
    const auto device = index.devices().at(0);
    const auto list = dmf::DeviceList::withChannelNames({"Print"});
    auto choice = list->bestWay(device, "Print");
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->way.uri, "usb://a");
    EXPECT_EQ(choice->reason, "USB comes first of 3 ways, by the order USB, IP, Rendezvous, IPP, LPD, others");

    list->setOrder([](const dmf::DeviceWay& way, std::string_view) { return way.connectionType == "IP" ? 0 : 1; });
    EXPECT_EQ(list->bestWay(device, "Print")->way.uri, "socket://a");

    auto scanOnly = device;
    for (auto& way : scanOnly.ways)
        way.serviceName = "Scan";
    EXPECT_FALSE(list->bestWay(scanOnly, "Print"));
}
