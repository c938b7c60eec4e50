#include <dmf/ADMServiceURIParser.h>

#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>

#include <random>

#include <gmock/gmock.h>

#include "support/HostFixture.h"
#include "support/LogCapture.h"
#include "support/Repeated.h"

using dmf::Array;
using dmf::Dictionary;
using testing::AnyOf;
using testing::ElementsAre;

namespace {

Dictionary address(const char* text)
{
    return {{"IPAddress", text}, {"AllIPAddresses", Array{text}}};
}

Dictionary withPort(Dictionary params, const char* port)
{
    params.set(kIPPortParam, port);
    return params;
}

Dictionary bonjour(const char* name, const char* type, const char* rendezvousAddress)
{
    return {{"BonjourServiceName", name},
            {"BonjourServiceType", type},
            {"BonjourServiceDomain", "local."},
            {"RendezvousAddress", rendezvousAddress}};
}

struct Case {
    std::string uri;
    Dictionary components;
};

void expectComponents(const std::vector<Case>& cases)
{
    for (const auto& [uri, components] : cases) {
        ADMServiceURIParser parser(uri);
        EXPECT_TRUE(parser.parse()) << uri;
        EXPECT_EQ(parser.components(), components) << uri << "\n" << parser.components().description();
    }
}

void expectRefused(std::initializer_list<std::string_view> uris)
{
    for (const auto uri : uris) {
        ADMServiceURIParser parser(uri);
        EXPECT_FALSE(parser.parse()) << uri.substr(0, 100);
    }
}

} // namespace

TEST(URIParser, ReadsUSB)
{
    HostFixture host;
    const Dictionary serial1{{"SerialNumber", "1"}};
    expectComponents({
        {"usb://QL/Model%20100?serial=CN12%2034",
         {{"connectionType", "USB"},
          {"vendorName", "QL"},
          {"modelName", "Model 100"},
          {"params", Dictionary{{"SerialNumber", "CN12 34"}}}}},
        {"USB://ql/M?SERIAL=1",
         {{"connectionType", "USB"}, {"vendorName", "ql"}, {"modelName", "M"}, {"params", serial1}}},
        {"usb://QL/M?serial=",
         {{"connectionType", "USB"},
          {"vendorName", "QL"},
          {"modelName", "M"},
          {"params", Dictionary{{"SerialNumber", ""}}}}},
        // The later serial number counts; a URI without one has no parameters at all.
        {"usb://QL/M?x=y&serial=0&serial=1",
         {{"connectionType", "USB"}, {"vendorName", "QL"}, {"modelName", "M"}, {"params", serial1}}},
        {"usb://QL/M", {{"connectionType", "USB"}, {"vendorName", "QL"}, {"modelName", "M"}}},
        // The key is cut off by its length, wherever it stands; a long s counts as an s.
        {"usb://QL/M?my-serial=1",
         {{"connectionType", "USB"},
          {"vendorName", "QL"},
          {"modelName", "M"},
          {"params", Dictionary{{"SerialNumber", "al=1"}}}}},
        {"usb://QL/M?%C5%BFerial=1",
         {{"connectionType", "USB"}, {"vendorName", "QL"}, {"modelName", "M"}, {"params", serial1}}},
        // Blanks before a piece are skipped.
        {"usb://%20QL/%20M?serial=1",
         {{"connectionType", "USB"}, {"vendorName", "QL"}, {"modelName", "M"}, {"params", serial1}}},
    });
    expectRefused({"usb:", "usb://", "usb:///M?serial=1", "usb://QL", "usb://QL/", "usb://QL/?serial=1", "usb:QL/M"});
}

TEST(URIParser, ReadsSocketLPDAndIPPAlike)
{
    HostFixture host;
    for (const auto& [scheme, type] : {std::pair("socket", "IP"), {"lpd", "LPD"}, {"ipp", "IPP"}}) {
        const std::string head = std::string(scheme) + "://";
        const Dictionary named{{"HostName", "printer1"}};
        expectComponents({
            {head + "10.0.0.5:9100", {{"connectionType", type}, {"params", withPort(address("10.0.0.5"), "9100")}}},
            {head + "192.168.1.20/?bidi", {{"connectionType", type}, {"params", address("192.168.1.20")}}},
            {head + "printer1:9100",
             {{"connectionType", type}, {"deviceName", "printer1"}, {"params", withPort(named, "9100")}}},
            {head + "printer1?vendor=QL&product=M%209",
             {{"connectionType", type},
              {"deviceName", "printer1"},
              {"vendorName", "QL"},
              {"modelName", "M 9"},
              {"params", named}}},
            {head + "printer1//?/?Product=M",
             {{"connectionType", type}, {"deviceName", "printer1"}, {"modelName", "M"}, {"params", named}}},
            // A letter makes a name, be it beyond ASCII; a port is not looked at.
            {head + "%C3%BC:none",
             {{"connectionType", type},
              {"deviceName", "\xC3\xBC"},
              {"params", Dictionary{{"HostName", "\xC3\xBC"}, {"IPPort", "none"}}}}},
        });
    }
}

TEST(URIParser, ReadsIPv6WithAndWithoutBrackets)
{
    HostFixture host;
    expectComponents({
        {"socket://[fe80::1]:9100/?bidi", {{"connectionType", "IP"}, {"params", withPort(address("fe80::1"), "9100")}}},
        {"socket://[fe80::1%25en0]/?bidi", {{"connectionType", "IP"}, {"params", address("fe80::1%en0")}}},
        // Escaped once more, the zone separator is restored after the URI's own escapes.
        {"socket://[fe80::1%2525en0]:9100",
         {{"connectionType", "IP"}, {"params", withPort(address("fe80::1%en0"), "9100")}}},
        {"socket://fe80::1", {{"connectionType", "IP"}, {"params", address("fe80::1")}}},
        {"socket://[::1]:1:2", {{"connectionType", "IP"}, {"params", address("::1")}}},
    });
    expectRefused({"socket://", "socket:///?bidi", "socket://[fe80::1", "socket://]:1:2", "socket://a[::1]:1",
                   "socket://[]:1:2", "socket://::1["});
}

TEST(URIParser, ReadsBonjourNames)
{
    HostFixture host;
    for (const char* scheme : {"mdns", "dnssd", "DNSSD"}) {
        expectComponents({
            {std::string(scheme) + "://Office%20Printer._pdl-datastream._tcp.local./?bidi",
             {{"connectionType", "Rendezvous"},
              {"deviceName", "Office Printer"},
              {"serviceName", "PRINT"},
              {"params", bonjour("Office Printer", "_pdl-datastream._tcp.", "Office%20Printer.local.")}}},
            {std::string(scheme) + "://a.b%2Fc._printer._tcp.local.",
             {{"connectionType", "Rendezvous"},
              {"deviceName", "a.b/c"},
              {"serviceName", "PRINT"},
              {"params", bonjour("a.b/c", "_printer._tcp.", "a.b%2Fc.local.")}}},
            {std::string(scheme) + "://A._scanner._tcp.local./",
             {{"connectionType", "Rendezvous"},
              {"deviceName", "A"},
              {"params", bonjour("A", "_scanner._tcp.", "A.local.")}}},
        });
    }
    // A socket URI with a Bonjour name is read as such and stays a socket URI.
    expectComponents({{"socket://Office._pdl-datastream._tcp.local./",
                       {{"connectionType", "IP"},
                        {"deviceName", "Office"},
                        {"serviceName", "PRINT"},
                        {"params", bonjour("Office", "_pdl-datastream._tcp.", "Office.local.")}}}});
    expectRefused({"mdns://", "mdns:///x", "mdns://Office._pdl-datastream._tcp.local", "mdns://a.b.c",
                   "mdns:a.b.c.d.e.", "mdns://%FF._pdl-datastream._tcp.local./"});
}

TEST(URIParser, ReadsBluetooth)
{
    HostFixture host;
    const Dictionary params{{"MACAddress", "00-11-22"}};
    expectComponents({
        {"bluetooth://00-11-22", {{"connectionType", "Bluetooth"}, {"params", params}}},
        {"bluetooth://00-11-22?product=M&vendor=QL",
         {{"connectionType", "Bluetooth"}, {"vendorName", "QL"}, {"modelName", "M"}, {"params", params}}},
    });
    expectRefused({"bluetooth://", "bluetooth://?vendor=QL"});
}

TEST(URIParser, ReadsBothFormsOfQLIP)
{
    HostFixture host;
    const Dictionary onlyAddress{{"IPAddress", "10.0.0.5"}};
    expectComponents({
        {"qlip://10.0.0.5?model=M%209&mac=001122334455&ifid=1",
         {{"connectionType", "QLIP"},
          {"modelName", "M 9"},
          {"params",
           Dictionary{{"IPAddress", "10.0.0.5"}, {"MACAddress", "00.11.22.33.44.55"}, {"InterfaceNumber", "1"}}}}},
        // Without a good hardware address the interface number goes as well.
        {"qlip://10.0.0.5?model=M9&mac=0011223344&ifid=1",
         {{"connectionType", "QLIP"}, {"modelName", "M9"}, {"params", onlyAddress}}},
        {"qlip://10.0.0.5?junk&model=M9=x&ifid=1",
         {{"connectionType", "QLIP"}, {"modelName", "M9"}, {"params", onlyAddress}}},
        // Without a model the older form is tried.
        {"qlip://10.0.0.5:Model%209/1%3a00:11",
         {{"connectionType", "QLIP"},
          {"modelName", "Model 9"},
          {"params", Dictionary{{"IPAddress", "10.0.0.5"}, {"MACAddress", "00:11"}, {"InterfaceNumber", "1"}}}}},
        {"vastel://10.0.0.5:Model%209/1%3a00:11:22:33:44:55",
         {{"connectionType", "QLIP"},
          {"modelName", "Model 9"},
          {"params",
           Dictionary{{"IPAddress", "10.0.0.5"}, {"MACAddress", "00:11:22:33:44:55"}, {"InterfaceNumber", "1"}}}}},
        {"vastel://10.0.0.5:M/:00", {{"connectionType", "QLIP"}, {"modelName", "M"}, {"params", onlyAddress}}},
    });
    expectRefused({"qlip://10.0.0.5?model=", "qlip://?model=M", "vastel://", "vastel://:M/1", "vastel://10.0.0.5",
                   "vastel://10.0.0.5:/1%3a00"});
}

TEST(URIParser, ReadsUniversalURIsOfAnyOtherScheme)
{
    HostFixture host;
    expectComponents({
        {"myapp://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=Model%20100&SerialNumber=CN12%2034",
         {{"connectionType", "USB"},
          {"vendorName", "QL"},
          {"modelName", "Model 100"},
          {"SerialNumber", "CN12 34"},
          {"params", Dictionary{{"vendorName", "QL"}, {"modelName", "Model 100"}, {"SerialNumber", "CN12 34"}}}}},
        // Any type will do; pairs without "=" and what follows a second "=" are left out, escaped or not; of two pairs
        // with one key the later counts.
        {"x://QLDMF/v=2&connectionType=Pigeon&junk&a=1&b=2%3D3=4&c=5%26d=6&a=7&=8",
         {{"connectionType", "Pigeon"},
          {"", "8"},
          {"a", "7"},
          {"b", "2"},
          {"c", "5"},
          {"d", "6"},
          {"params", Dictionary{{"", "8"}, {"a", "7"}, {"b", "2"}, {"c", "5"}, {"d", "6"}}}}},
    });
    expectRefused({"x://QLDMF/", "x://QLDMF", "x://QLDMF/v=1&a=b", "x://qldmf/v=1&connectionType=USB",
                   "x://other/v=1&connectionType=USB", "x:connectionType=USB"});
}

TEST(URIParser, SaysWhyItRefuses)
{
    HostFixture host;
    const LogCapture log(host);
    expectRefused({"usb://QL", "x://other/", "usb://ACME/M?serial=1",
                   "x://QLDMF/v=1&connectionType=USB&vendorName=Acme", "socket://h?vendor=", "not a URI", ""});
    EXPECT_THAT(
        log.lines(),
        ElementsAre("W  ServiceInfo: service info has been created with not valid URI 'usb://QL'.",
                    "D  ServiceInfo: unknown connection type 'x' of 'x://other/' URI, service info is not created.",
                    "W  ServiceInfo: vendor 'acme' is not supported, service info for uri 'usb://ACME/M?serial=1' was "
                    "not created.",
                    "W  ServiceInfo: vendor 'acme' is not supported, service info for uri "
                    "'x://QLDMF/v=1&connectionType=USB&vendorName=Acme' was not created.",
                    "W  ServiceInfo: vendor '' is not supported, service info for uri 'socket://h?vendor=' was not "
                    "created."));
    for (const char* vendor : {"QL", "ql", "Tessaly-Corvan", "TESSALY-CORVAN"})
        EXPECT_TRUE(ADMServiceURIParser("usb://" + std::string(vendor) + "/M").parse()) << vendor;
}

TEST(URIParser, IsStandardByItsSchemeOrByAKnownConnectionType)
{
    HostFixture host;
    const struct {
        const char* uri;
        bool standard;
    } cases[] = {
        {"", false},
        {"no URI", false},
        {"USB://QL", true}, // the scheme alone tells
        {"x://QLDMF/v=1&connectionType=LPD", true},
        {"x://QLDMF/v=1&connectionType=AppleTalk", false},
        {"x://elsewhere", false},
    };
    for (const auto& [uri, standard] : cases) {
        ADMServiceURIParser parser(uri);
        (void)parser.parse();
        EXPECT_EQ(parser.isStandardURI(), standard) << uri;
    }
    EXPECT_THAT(ADMServiceURIParser::knownConnectionTypes(),
                ElementsAre("Bluetooth", "IP", "IPP", "LPD", "QLIP", "Rendezvous", "USB"));
}

TEST(URIParser, ForgetsTheComponentsOfAnEarlierURI)
{
    HostFixture host;
    ADMServiceURIParser parser("usb://QL/M?serial=1");
    EXPECT_TRUE(parser.components().empty());
    ASSERT_TRUE(parser.parse());
    ASSERT_TRUE(parser.parseURI("socket://10.0.0.5"));
    EXPECT_EQ(parser.components(), (Dictionary{{"connectionType", "IP"}, {"params", address("10.0.0.5")}}));
    EXPECT_EQ(parser.uri(), "socket://10.0.0.5");
    EXPECT_FALSE(parser.parseURI("??"));
    EXPECT_TRUE(parser.components().empty());
}

TEST(URIParser, RefusesBytesThatMakeNoURI)
{
    HostFixture host;
    using namespace std::string_view_literals;
    expectRefused({
        "usb://QL/M\0?serial=1"sv,
        "usb://QL/M%00?serial=1",
        "socket://h%00.example.org",
        "x://QLDMF/v=1%00&connectionType=IP",
        "usb://QL/M%zz",
        "usb://QL/M%",
        "usb://QL/M%4",
        "usb://QL/%FF%FE?serial=1",
        "usb://QL/Dr\xC3\xBC"
        "cker",
        "usb://QL/\xFF",
        "usb://QL/a b",
        "usb://QL/a\nb",
        "://x",
        "1usb://QL/M",
        "usb",
    });
    for (const char* head :
         {"usb://QL/", "socket://", "mdns://", "qlip://h?model=", "x://QLDMF/v=1&connectionType=IP&"})
        expectRefused({head + repeated("a.%41=&", 150'000), head + repeated("a", 1'000'000)});
}

// Whatever stands in a URI, reading it ends, and what is accepted is complete.
TEST(URIParser, StandsAnyText)
{
    HostFixture host;
    const std::string seeds[] = {
        "usb://QL/Model%20100?serial=CN12%2034",           "socket://[fe80::1%2525en0]:9100/?vendor=QL&product=M",
        "mdns://a.b._pdl-datastream._tcp.local./?bidi",    "bluetooth://00-11?vendor=QL",
        "qlip://10.0.0.5?model=M&mac=001122334455&ifid=1", "vastel://10.0.0.5:M/1%3a00:11",
        "x://QLDMF/v=1&connectionType=USB&vendorName=QL",
    };
    const std::string_view pieces[] = {
        "%", "%2", "%25", "%3a",     "%C3%BC",  "//",           "/",     "?",        "&",   "=", ":",
        "[", "]",  ".",   "serial=", "vendor=", "._tcp.local.", "QLDMF", "\xC3\xBC", "\x01"};
    std::mt19937 random(4711);
    int accepted = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::string text = seeds[random() % std::size(seeds)];
        for (auto changes = random() % 4; changes > 0; --changes) {
            const auto at = random() % (text.size() + 1);
            const auto& piece = pieces[random() % std::size(pieces)];
            text.replace(at, random() % 3, piece);
        }
        ADMServiceURIParser parser(text);
        if (!parser.parse())
            continue;
        ++accepted;
        EXPECT_TRUE(parser.components()[kConnectionTypeProp].asString()) << text;
        EXPECT_THAT(dmf::lowercased(parser.components().string(kVendorNameProp).value_or("ql")),
                    AnyOf("ql", "tessaly-corvan"))
            << text;
    }
    EXPECT_GT(accepted, 1000);
}
