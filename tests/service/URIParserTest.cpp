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

Dictionary components(const char* type, std::optional<Dictionary> params, Dictionary more = {})
{
    more.set(kConnectionTypeProp, type);
    if (params)
        more.set(kParamsProp, *params);
    return more;
}

Dictionary usb(const char* vendor, const char* model, std::optional<Dictionary> params)
{
    return components("USB", std::move(params), {{"vendorName", vendor}, {"modelName", model}});
}

Dictionary rendezvous(const char* type, const char* name, const Dictionary& params, bool prints = true)
{
    Dictionary more{{"deviceName", name}};
    if (prints)
        more.set(kServiceNameProp, "PRINT");
    return components(type, params, more);
}

Dictionary qlip(const char* model, const char* mac = nullptr)
{
    Dictionary params{{"IPAddress", "10.0.0.5"}};
    if (mac)
        params.merge({{"MACAddress", mac}, {"InterfaceNumber", "1"}});
    return components("QLIP", params, {{"modelName", model}});
}

struct URIParser : testing::Test {
    HostFixture host;
};

struct Case {
    std::string uri;
    Dictionary components;
};

void expectComponents(const std::vector<Case>& cases)
{
    for (const auto& [uri, expected] : cases) {
        ADMServiceURIParser parser(uri);
        EXPECT_TRUE(parser.parse()) << uri;
        EXPECT_EQ(parser.components(), expected) << uri << "\n" << parser.components().description();
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

TEST_F(URIParser, ReadsUSB)
{
    const auto serial = [](const char* text) { return Dictionary{{"SerialNumber", text}}; };
    expectComponents({
        {"usb://QL/Model%20100?serial=CN12%2034", usb("QL", "Model 100", serial("CN12 34"))},
        {"USB://ql/M?SERIAL=1", usb("ql", "M", serial("1"))},
        {"usb://QL/M?serial=", usb("QL", "M", serial(""))},
        // The later serial number counts; a URI without one has no parameters at all.
        {"usb://QL/M?x=y&serial=0&serial=1", usb("QL", "M", serial("1"))},
        {"usb://QL/M", usb("QL", "M", {})},
        // The key is cut off by its length, wherever it stands; a long s counts as an s.
        {"usb://QL/M?my-serial=1", usb("QL", "M", serial("al=1"))},
        {"usb://QL/M?%C5%BFerial=1", usb("QL", "M", serial("1"))},
        // Blanks before a piece are skipped.
        {"usb://%20QL/%20M?serial=1", usb("QL", "M", serial("1"))},
    });
    expectRefused({"usb:", "usb:///M?serial=1", "usb://QL", "usb://QL/?serial=1", "usb:QL/M"});
}

TEST_F(URIParser, ReadsSocketLPDAndIPPAlike)
{
    for (const auto& [scheme, type] : {std::pair("socket", "IP"), {"lpd", "LPD"}, {"ipp", "IPP"}}) {
        const std::string head = std::string(scheme) + "://";
        const Dictionary named{{"HostName", "printer1"}};
        const Dictionary device{{"deviceName", "printer1"}};
        expectComponents({
            {head + "10.0.0.5:9100", components(type, withPort(address("10.0.0.5"), "9100"))},
            {head + "192.168.1.20/?bidi", components(type, address("192.168.1.20"))},
            {head + "printer1:9100", components(type, withPort(named, "9100"), device)},
            {head + "printer1//?/?vendor=QL&Product=M%209",
             components(type, named, {{"deviceName", "printer1"}, {"vendorName", "QL"}, {"modelName", "M 9"}})},
            // A letter makes a name, be it beyond ASCII; a port is not looked at.
            {head + "%C3%BC:none",
             components(type, withPort({{"HostName", "\xC3\xBC"}}, "none"), {{"deviceName", "\xC3\xBC"}})},
        });
    }
}

TEST_F(URIParser, ReadsIPv6WithAndWithoutBrackets)
{
    expectComponents({
        {"socket://[fe80::1]:9100/?bidi", components("IP", withPort(address("fe80::1"), "9100"))},
        {"socket://[fe80::1%25en0]/?bidi", components("IP", address("fe80::1%en0"))},
        // Escaped once more, the zone separator is restored after the URI's own escapes.
        {"socket://[fe80::1%2525en0]:9100", components("IP", withPort(address("fe80::1%en0"), "9100"))},
        {"socket://fe80::1", components("IP", address("fe80::1"))},
        {"socket://[::1]:1:2", components("IP", address("::1"))},
    });
    expectRefused({"socket://", "socket:///?bidi", "socket://[fe80::1", "socket://]:1:2", "socket://a[::1]:1",
                   "socket://[]:1:2", "socket://::1["});
}

TEST_F(URIParser, ReadsBonjourNames)
{
    const auto office = bonjour("Office Printer", "_pdl-datastream._tcp.", "Office%20Printer.local.");
    for (const std::string scheme : {"mdns", "dnssd", "DNSSD"}) {
        expectComponents({
            {scheme + "://Office%20Printer._pdl-datastream._tcp.local./?bidi",
             rendezvous("Rendezvous", "Office Printer", office)},
            {scheme + "://a.b%2Fc._printer._tcp.local.",
             rendezvous("Rendezvous", "a.b/c", bonjour("a.b/c", "_printer._tcp.", "a.b%2Fc.local."))},
            {scheme + "://A._scanner._tcp.local./",
             rendezvous("Rendezvous", "A", bonjour("A", "_scanner._tcp.", "A.local."), false)},
        });
    }
    // A socket URI with a Bonjour name is read as such and stays a socket URI.
    expectComponents(
        {{"socket://Office%20Printer._pdl-datastream._tcp.local./", rendezvous("IP", "Office Printer", office)}});
    expectRefused({"mdns://", "mdns:///x", "mdns://Office._pdl-datastream._tcp.local", "mdns://a.b.c",
                   "mdns:a.b.c.d.e.", "mdns://%FF._pdl-datastream._tcp.local./"});
}

TEST_F(URIParser, ReadsBluetoothAndBothFormsOfQLIP)
{
    expectComponents({
        {"bluetooth://00-11-22?product=M&vendor=QL",
         components("Bluetooth", Dictionary{{"MACAddress", "00-11-22"}}, {{"vendorName", "QL"}, {"modelName", "M"}})},
        {"qlip://10.0.0.5?model=M%209&mac=001122334455&ifid=1", qlip("M 9", "00.11.22.33.44.55")},
        // Without a good hardware address the interface number goes as well.
        {"qlip://10.0.0.5?model=M9&mac=0011223344&ifid=1", qlip("M9")},
        {"qlip://10.0.0.5?junk&model=M9=x&ifid=1", qlip("M9")},
        // Without a model the older form is tried.
        {"qlip://10.0.0.5:Model%209/1%3a00:11", qlip("Model 9", "00:11")},
        {"vastel://10.0.0.5:Model%209/1%3a00:11:22:33:44:55", qlip("Model 9", "00:11:22:33:44:55")},
        {"vastel://10.0.0.5:M/:00", qlip("M")},
    });
    expectRefused({"bluetooth://", "bluetooth://?vendor=QL", "qlip://10.0.0.5?model=", "qlip://?model=M", "vastel://",
                   "vastel://:M/1", "vastel://10.0.0.5", "vastel://10.0.0.5:/1%3a00"});
}

TEST_F(URIParser, ReadsUniversalURIsOfAnyOtherScheme)
{
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

TEST_F(URIParser, SaysWhyItRefuses)
{
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
    expectRefused({"usb://QL/M%00", "usb://QL/" + std::string(ADMServiceURIParser::kLongestURI, 'a')});
    EXPECT_EQ(log.lines()[5],
              "W  ServiceInfo: the URI 'usb://QL/M%00' holds an escaped zero byte, service info was not "
              "created.");
    EXPECT_EQ(log.lines()[6], "W  ServiceInfo: a URI of 65545 bytes is too long, service info was not created.");
    EXPECT_TRUE(ADMServiceURIParser("usb://TESSALY-CORVAN/M").parse());
}

TEST_F(URIParser, IsStandardByItsSchemeOrByAKnownConnectionType)
{
    const auto isStandard = [](const char* uri) {
        ADMServiceURIParser parser(uri);
        (void)parser.parse();
        return parser.isStandardURI();
    };
    for (const char* uri : {"USB://QL", "x://QLDMF/v=1&connectionType=LPD"}) // a scheme alone tells
        EXPECT_TRUE(isStandard(uri)) << uri;
    for (const char* uri : {"", "no URI", "x://QLDMF/v=1&connectionType=AppleTalk", "x://elsewhere"})
        EXPECT_FALSE(isStandard(uri)) << uri;
    // A parser that is used again forgets what it read before.
    ADMServiceURIParser parser("usb://QL/M?serial=1");
    ASSERT_TRUE(parser.parse());
    EXPECT_FALSE(parser.parseURI("??"));
    EXPECT_TRUE(parser.components().empty());
}

TEST_F(URIParser, RefusesBytesThatMakeNoURI)
{
    using namespace std::string_view_literals;
    expectRefused({"usb://QL/M\0?serial=1"sv, "usb://QL/M%00?serial=1", "socket://h%00.example.org", "usb://QL/M%zz",
                   "x://QLDMF/v=1%00&connectionType=IP", "usb://QL/M%", "usb://QL/%FF%FE?serial=1", "usb://QL/\xC3\xBC",
                   "usb://QL/a b", "usb://QL/a\nb", "://x", "1usb://QL/M"});
    for (const char* head :
         {"usb://QL/", "socket://", "mdns://", "qlip://h?model=", "x://QLDMF/v=1&connectionType=IP&"})
        expectRefused({head + repeated("a.%41=&", 150'000), head + repeated("a", 1'000'000)});
}

// Whatever stands in a URI, reading it ends, and what is accepted is complete.
TEST_F(URIParser, StandsAnyText)
{
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
