#include <dmf/ADMServiceInfoImp.h>

#include <dmf/ADMModelInfo.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>

#include <stdexcept>

#include <gmock/gmock.h>

#include "FakeTransport.h"
#include "platform/documents/Archive.h"
#include "support/HostFixture.h"
#include "support/LogCapture.h"

using dmf::Array;
using dmf::Data;
using dmf::Dictionary;
using testing::ElementsAre;

namespace {

std::shared_ptr<ADMServiceInfoImp> fromURI(std::string_view uri)
{
    return ADMServiceInfoImp::serviceInfoWithURI(uri, kPrinterDeviceClass);
}

std::shared_ptr<ADMServiceInfoImp> fromSpec(const Dictionary& spec)
{
    return ADMServiceInfoImp::initWithSpec(spec);
}

const Dictionary kSocketParams{{"IPAddress", "10.0.0.5"}, {"AllIPAddresses", Array{"10.0.0.5"}}, {"IPPort", "9100"}};

/// A machine of its own for each test.
struct ServiceInfo : testing::Test {
    HostFixture host;
};

} // namespace

DMF_REGISTER_CLASS(MockSchemeProvider)
{
    described.implements<ADMIOProvider>([] { return std::make_shared<FakeTransport>(std::make_shared<FakeDevice>()); });
}

TEST_F(ServiceInfo, KnowsWhatItsURISaysAndIsNotMadeWithoutOneThatCanBeRead)
{
    const auto info = fromURI("socket://10.0.0.5:9100?vendor=QL&product=Model%209");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->uri(), "socket://10.0.0.5:9100?vendor=QL&product=Model%209");
    EXPECT_EQ(info->connectionParams(), kSocketParams);
    EXPECT_EQ(info->deviceName(), "Model 9"); // for want of a name of its own
    EXPECT_TRUE(info->hasStandardURI());
    EXPECT_EQ(info->universalURIWithScheme("app"), "app://QLDMF/v=1&connectionType=IP&IPAddress=10.0.0.5");
    EXPECT_EQ(info->universalURIWithScheme(std::nullopt), std::nullopt);

    EXPECT_EQ(ADMServiceInfoImp::initWithURI("usb://QL/M", std::nullopt), nullptr);
    for (const char* uri : {"", "usb://QL", "usb://acme/M?serial=1", "unknown://device"})
        EXPECT_EQ(fromURI(uri), nullptr) << uri;
    EXPECT_EQ(ADMServiceInfoImp::initWithData(std::nullopt), nullptr);
}

// Who the service is, says the caller: pairs of a universal URI that are named like that are its parameters only.
TEST_F(ServiceInfo, AUniversalURICannotNameAnotherURIOrDeviceClass)
{
    constexpr const char* uri = "x://QLDMF/v=1&connectionType=IP&IPAddress=1.2.3.4&URI=usb://QL/M&deviceClass=none";
    const auto info = fromURI(uri);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->uri(), uri);
    EXPECT_EQ(info->deviceClass(), kPrinterDeviceClass);
    EXPECT_EQ(info->connectionParams()["deviceClass"], "none");
    // Nor when it is read only later.
    const auto late = fromSpec({{"URI", uri}, {"deviceClass", "com.ql.fax"}, {"connectionType", "IP"}});
    EXPECT_EQ(late->universalURIWithScheme("app"), "app://QLDMF/v=1&connectionType=IP&IPAddress=1.2.3.4");
    EXPECT_EQ(late->uri(), uri);
    EXPECT_EQ(late->deviceClass(), "com.ql.fax");
}

TEST_F(ServiceInfo, AProviderOrAMockSchemeMakesUpForAnUnreadableURI)
{
    const auto provider = std::make_shared<FakeTransport>(std::make_shared<FakeDevice>());
    const auto given = ADMServiceInfoImp::initWithURI("unknown://device", kPrinterDeviceClass, provider);
    ASSERT_TRUE(given);
    EXPECT_EQ(given->ioProvider(), provider);
    EXPECT_FALSE(given->hasStandardURI());

    ADMPlugInManager::sharedManager()->registerMockImplementors(
        {{std::string(kDMMockScheme), "mockdevice"}, {std::string(kDMMockIOProvider), "MockSchemeProvider"}});
    const auto found = fromURI("MockDevice://anything");
    ASSERT_TRUE(found);
    EXPECT_NE(std::dynamic_pointer_cast<FakeTransport>(found->ioProvider()), nullptr);
    EXPECT_EQ(fromURI("othermock://anything"), nullptr);
    // A URI that names a known connection type is standard: no provider is looked for.
    EXPECT_EQ(fromURI("mockdevice://QLDMF/v=1&connectionType=IP&IPAddress=1.2.3.4")->ioProvider(), nullptr);
}

TEST_F(ServiceInfo, GeneratesItsURIOnceAndKeepsIt)
{
    const auto info = fromSpec({{"connectionType", "IP"}, {"params", Dictionary{{"IPAddress", "10.0.0.5"}}}});
    EXPECT_EQ(info->uri(), "socket://10.0.0.5/?bidi");
    info->setConnectionParams({{"IPAddress", "10.0.0.6"}});
    EXPECT_EQ(info->uri(), "socket://10.0.0.5/?bidi");

    // Parameters that are known to be none are known.
    const auto bare = fromSpec({{"connectionType", "IP"}, {"URI", "socket://printer1"}});
    bare->setConnectionParams({});
    EXPECT_EQ(bare->universalURIWithScheme("app"), std::nullopt);

    // Of a URI alone, the universal form is made by reading it first.
    EXPECT_EQ(fromSpec({{"URI", "socket://printer1"}})->universalURIWithScheme("app"),
              "app://QLDMF/v=1&connectionType=IP&HostName=printer1");
}

TEST_F(ServiceInfo, SettersIgnoreMissingValuesAndMergeParameters)
{
    const auto info = fromURI("socket://10.0.0.5:9100?vendor=QL&product=M");
    const auto model = info->modelInfo();
    ASSERT_TRUE(model);
    info->setVendorName(std::nullopt);
    info->setModelName("M");
    EXPECT_EQ(info->vendorName(), "QL");
    EXPECT_EQ(info->modelInfo(), model);
    info->setModelName("N");
    info->setConnectionParams({{"IPPort", "515"}});
    EXPECT_NE(info->modelInfo(), model); // looked up anew
    EXPECT_EQ(info->connectionParams()["IPPort"], "515");
    EXPECT_EQ(info->connectionParams()["IPAddress"], "10.0.0.5");
    info->setServiceState(0xFFFFFFFA);
    EXPECT_EQ(info->serviceState(), 2u);
}

TEST_F(ServiceInfo, TakesOverWhatADeviceOfAnAcceptedVendorSays)
{
    const auto info = fromURI("socket://10.0.0.5:9100?product=M");
    for (const auto& other : {Dictionary{{"vendorName", "acme"}, {"modelName", "X"}}, Dictionary{{"modelName", "X"}}}) {
        info->setResolvedSpec(other);
        EXPECT_EQ(info->serviceState(), 2u);
        EXPECT_EQ(info->modelName(), "M");
    }
    info->setResolvedSpec(
        {{"vendorName", "Tessaly-Corvan"}, {"modelName", "N"}, {"params", Dictionary{{"SerialNumber", "7"}}}});
    EXPECT_EQ(info->serviceState(), 1u);
    EXPECT_EQ(info->vendorName(), "Tessaly-Corvan");
    EXPECT_EQ(info->modelName(), "N");
    EXPECT_EQ(info->connectionParams()["SerialNumber"], "7");
    EXPECT_EQ(info->connectionParams()["IPPort"], "9100");

    // One whose model is unknown is asked.
    const auto device = std::make_shared<FakeDevice>(Dictionary{{"vendorName", "QL"}, {"modelName", "N"}});
    const auto asking = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass,
                                                       std::make_shared<FakeTransport>(device));
    EXPECT_EQ(asking->deviceName(), "N");
    EXPECT_EQ(asking->serviceState(), 1u);
}

TEST_F(ServiceInfo, EqualityLooksAtURIWithoutCaseAndServiceName)
{
    const auto spec = [](std::optional<std::string> uri, std::optional<std::string> service) {
        Dictionary result;
        result.set(kURIProp, uri);
        result.set(kServiceNameProp, service);
        return fromSpec(result);
    };
    const auto lower = spec("socket://printer1", "Scan");
    const auto upper = spec("SOCKET://Printer1", "Scan");
    EXPECT_TRUE(lower->isEqual(*upper));
    EXPECT_TRUE(lower->isEqualToServiceInfo(*lower));
    EXPECT_FALSE(lower->isEqual(*spec("socket://printer2", "Scan")));
    EXPECT_FALSE(lower->isEqual(*spec("socket://printer1", "scan")));
    EXPECT_FALSE(lower->isEqual(*spec(std::nullopt, "Scan")));
    EXPECT_TRUE(spec(std::nullopt, std::nullopt)->isEqual(*spec(std::nullopt, std::nullopt)));

    // Equal through a difference of case, and yet of different hashes: the hash heeds case on purpose.
    EXPECT_NE(lower->hash(), upper->hash());
    EXPECT_EQ(lower->hash(), com_ql_dmf_MD5Hash("socket://printer1com.ql.scanner")); // the class of its service name
    EXPECT_EQ(fromSpec({})->hash(), com_ql_dmf_MD5Hash("com.ql.printer"));
}

TEST_F(ServiceInfo, DevicesAreEqualAsFarAsTheyCanBeToldApart)
{
    const auto device = [](const Dictionary& params, const char* model = "M", const char* type = "IP") {
        return fromSpec({{"modelName", model}, {"connectionType", type}, {"params", params}});
    };
    const auto plain = device({});
    const struct {
        std::shared_ptr<ADMServiceInfoImp> left, right;
        bool equal;
    } cases[] = {
        {plain, device({}, "N"), false},
        {plain, device({}, "M", "USB"), false},
        {device({{"SerialNumber", "1"}}), plain, true},
        {device({{"SerialNumber", "1"}}), device({{"SerialNumber", "2"}}), false},
        {device({{"AllIPAddresses", Array{"a", "b"}}}), device({{"AllIPAddresses", Array{"b", "c"}}}), true},
        {device({{"AllIPAddresses", Array{"a"}}}), device({{"AllIPAddresses", Array{"b"}}}), false},
        {device({{"MACAddress", "1"}}), device({{"MACAddress", "2"}}), false},
        {device({{"MACAddress", "1"}}), plain, true},
    };
    for (const auto& [left, right, equal] : cases) {
        EXPECT_EQ(left->isEqualToDeviceInfo(*right), equal) << left->connectionParams().description();
        EXPECT_EQ(right->isEqualToDeviceInfo(*left), equal) << left->connectionParams().description();
    }
}

TEST_F(ServiceInfo, ArchivesKeepEveryProperty)
{
    const auto info = fromURI("socket://10.0.0.5:9100?vendor=QL&product=M");
    info->setResolvedSpec(
        {{"vendorName", "QL"}, {"params", Dictionary{{"SerialNumber", "7"}}}, {"deviceName", "Lobby"}});
    const auto copy = info->copy();
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->isEqual(*info));
    EXPECT_EQ(copy->deviceName(), "Lobby");
    EXPECT_EQ(copy->connectionParams(), info->connectionParams());
    EXPECT_EQ(copy->serviceState(), 0u); // what is not a property stays behind

    // The archive is appended, and a second one read from it says the same.
    Data data = Data::fromText("before");
    info->serializeToData(data);
    EXPECT_EQ(data.text().substr(0, 6), "before");
    EXPECT_EQ(Data(data.bytes().subspan(6)), info->dataRepresentation());

    // What the URI says wins over other entries; all else survives.
    const auto contradictory =
        dmf::internal::archived({{"URI", "usb://QL/M?serial=1"},
                                 {"modelName", "Other"},
                                 {"deviceName", "Desk"},
                                 {"note", 7},
                                 {"params", Dictionary{{"SerialNumber", "2"}, {"kept", "yes"}}}});
    const auto read = ADMServiceInfoImp::serviceInfoWithData(contradictory);
    EXPECT_EQ(read->modelName(), "M");
    EXPECT_EQ(read->deviceName(), "Desk");
    EXPECT_EQ(read->connectionParams(), (Dictionary{{"SerialNumber", "1"}, {"kept", "yes"}}));
    EXPECT_EQ(dmf::internal::unarchived(read->dataRepresentation()->bytes())->string("URI"), "usb://QL/M?serial=1");
}

TEST_F(ServiceInfo, HostileArchivesDoNoHarm)
{
    const auto info = fromURI("usb://QL/M?serial=1");
    const Data good = *info->dataRepresentation();
    const auto before = info->dataRepresentation();
    for (const Data& bad : {Data(), Data::fromText("no archive"), Data(good.bytes().first(good.size() / 2))}) {
        info->deserializeFromData(bad);
        EXPECT_EQ(info->dataRepresentation(), before);
    }

    // Properties of unexpected kinds count as missing.
    const auto odd = ADMServiceInfoImp::initWithData(dmf::internal::archived({{"URI", 7},
                                                                              {"deviceClass", Array{1}},
                                                                              {"connectionType", Dictionary{}},
                                                                              {"modelName", true},
                                                                              {"params", "none"}}));
    EXPECT_EQ(odd->uri(), std::nullopt);
    EXPECT_EQ(odd->deviceClass(), std::nullopt);
    EXPECT_EQ(odd->modelName(), std::nullopt);
    odd->setConnectionParams({{"a", "b"}});
    EXPECT_EQ(odd->connectionParams(), (Dictionary{{"a", "b"}}));
}

TEST_F(ServiceInfo, LocatesItsDeviceThroughItsProviderAndKeepsIt)
{
    const auto device = std::make_shared<FakeDevice>();
    Dictionary seen;
    const auto transport = std::make_shared<FakeTransport>([&](const Dictionary& spec, const auto&, int attempt) {
        seen = spec;
        return attempt == 1 ? nullptr : device;
    });
    const auto info =
        ADMServiceInfoImp::initWithURI("socket://10.0.0.5:9100?product=M", kPrinterDeviceClass, transport);
    EXPECT_FALSE(info->isReachable());
    EXPECT_EQ(seen["URI"], "socket://10.0.0.5:9100?product=M");
    EXPECT_EQ(seen["params"], kSocketParams);

    EXPECT_EQ(info->locateDeviceWithHandler(nullptr), device); // not kept
    EXPECT_EQ(info->device(), device);
    EXPECT_EQ(info->device(), device);
    EXPECT_EQ(transport->attempts(), 3);
    device->reachable = false;
    EXPECT_FALSE(info->isReachable());
    info->setDevice(nullptr);
    EXPECT_TRUE(info->isReachable()); // found again
    EXPECT_EQ(transport->attempts(), 4);
}

TEST_F(ServiceInfo, WhatATransportThrowsCountsAsAFailure)
{
    const LogCapture log(host);
    const auto device = std::make_shared<FakeDevice>();
    device->onRetrieve = [](const auto&, const auto&) { throw 5; };
    const auto transport =
        std::make_shared<FakeTransport>([&](const auto&, const auto&, int attempt) -> std::shared_ptr<IDMDevice> {
            if (attempt == 1)
                throw std::runtime_error("cable cut");
            return device;
        });
    const auto info = ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, transport);
    EXPECT_EQ(info->device(), nullptr);
    EXPECT_EQ(info->modelInfo(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("E  ServiceInfo: exception 'cable cut' while a device was looked for",
                                         "E  ServiceInfo: exception 'unknown' while a device was asked who it is"));
}
