#include <dmf/ADMServiceURIGenerator.h>

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>

#include <gtest/gtest.h>

#include "support/HostFixture.h"
#include "support/LogCapture.h"

using dmf::Dictionary;

namespace {

std::shared_ptr<ADMServiceInfo> service(const char* type, const Dictionary& params, Dictionary more = {})
{
    more.set(kConnectionTypeProp, type);
    more.set(kParamsProp, params);
    return ADMServiceInfoImp::initWithSpec(more);
}

std::string standard(const std::shared_ptr<ADMServiceInfo>& info)
{
    return ADMServiceURIGenerator().generateURIForServiceInfo(info).value_or("(none)");
}

std::string universal(const std::shared_ptr<ADMServiceInfo>& info)
{
    return ADMServiceURIGenerator().generateUniversalURIForServiceInfo(info, "app").value_or("(none)");
}

struct URIGenerator : testing::Test {
    HostFixture host;
};

} // namespace

TEST_F(URIGenerator, WritesBothFormsOfEveryType)
{
    const Dictionary ql{{"vendorName", "QL"}, {"modelName", "Model 9"}};
    const Dictionary interface1{
        {"IPAddress", "10.0.0.5"}, {"MACAddress", "00:11:22:33:44:55"}, {"InterfaceNumber", "1"}};
    const struct {
        std::shared_ptr<ADMServiceInfo> info;
        const char* standard;
        const char* universal;
    } cases[] = {
        {service("USB", {{"SerialNumber", "A 1"}}, ql), "usb://QL/Model%209?serial=A%201",
         "app://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=Model%209&SerialNumber=A%201"},
        // A host name wins over an address, and a port is never written.
        {service("IP", {{"HostName", "printer1"}, {"IPAddress", "10.0.0.5"}, {"IPPort", "9100"}}),
         "socket://printer1/?bidi", "app://QLDMF/v=1&connectionType=IP&HostName=printer1"},
        {service("IP", {{"IPAddress", "10.0.0.5"}, {"IPPort", "9100"}}), "socket://10.0.0.5/?bidi",
         "app://QLDMF/v=1&connectionType=IP&IPAddress=10.0.0.5"},
        {service(
             "Rendezvous",
             {{"BonjourServiceName", "A B"}, {"BonjourServiceType", "_ipp._tcp."}, {"BonjourServiceDomain", "lan."}}),
         "dnssd://A%20B._ipp._tcp.lan./?bidi",
         "app://QLDMF/v=1&connectionType=Rendezvous&BonjourServiceName=A%20B&BonjourServiceType=_ipp._tcp."
         "&BonjourServiceDomain=lan."},
        // A type without a domain is dropped as well; the device's name stands in for the service's.
        {service("Rendezvous", {{"BonjourServiceType", "_ipp._tcp."}}, {{"deviceName", "Lobby"}}),
         "dnssd://Lobby._pdl-datastream._tcp.local./?bidi",
         "app://QLDMF/v=1&connectionType=Rendezvous&BonjourServiceName=Lobby"
         "&BonjourServiceType=_pdl-datastream._tcp.&BonjourServiceDomain=local."},
        {service("Bluetooth", {{"MACAddress", "00-11"}}), "bluetooth://00-11",
         "app://QLDMF/v=1&connectionType=Bluetooth&MACAddress=00-11"},
        {service("QLIP", interface1, ql), "vastel://10.0.0.5:Model%209/1%3a00:11:22:33:44:55", "(none)"},
        {service("AppleTalk", {}), "(none)", "(none)"},
        {ADMServiceInfoImp::initWithSpec({}), "(none)", "(none)"},
        {nullptr, "(none)", "(none)"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(standard(each.info), each.standard);
        EXPECT_EQ(universal(each.info), each.universal);
    }
}

TEST_F(URIGenerator, SaysWhatIsMissing)
{
    const LogCapture log(host);
    const std::pair<std::shared_ptr<ADMServiceInfo>, const char*> cases[] = {
        {service("Rendezvous", {}), "MDNS URI with unknown Bonjour name"},
        {service("QLIP", {}), "QLIP URI with unknown model"},
        {service("USB", {{"SerialNumber", "1"}}), "USB URI with unknown vendor or model."},
        {service("USB", {{"x", "y"}}, {{"vendorName", "QL"}, {"modelName", "M"}}),
         "USB URI with unknown serial number (connection parameters { \"x\" = \"y\" })."},
        {service("IP", {{"IPPort", "1"}}),
         "Socket URI with unknown IP address (connection parameters { \"IPPort\" = \"1\" })."},
        {service("Bluetooth", {}), "Bluetooth URI with unknown MAC address (connection parameters {})."},
        {service("QLIP", {{"IPAddress", "10.0.0.5"}, {"MACAddress", "0"}}, {{"modelName", "M"}}),
         "QLIP URI with unknown interface number (connection parameters { \"IPAddress\" = \"10.0.0.5\"; "
         "\"MACAddress\" = \"0\" })."},
    };
    for (const auto& [info, why] : cases) {
        EXPECT_EQ(standard(info), "(none)");
        EXPECT_EQ(log.lines().back(), std::string("D  ServiceInfo: cannot generate an ") + why);
    }
    EXPECT_EQ(log.lines().size(), std::size(cases));
}

// The table names operations for them that nobody has written; a service of these types has no URI of its own.
TEST_F(URIGenerator, CannotWriteIPPAndLPD)
{
    for (const char* type : {"IPP", "LPD"}) {
        const auto info = service(type, {{"IPAddress", "10.0.0.5"}});
        EXPECT_THROW((void)standard(info), dmf::UnrecognizedOperation);
        EXPECT_THROW((void)universal(info), dmf::UnrecognizedOperation);
        EXPECT_EQ(info->uri(), std::nullopt);
    }
}

// What is written must be read back as what it was made from: a value may end itself where it stands.
TEST_F(URIGenerator, RefusesWhatDoesNotReadBack)
{
    const auto bonjour = [](const char* name, const char* type = "_ipp._tcp.", const char* domain = "local.") {
        return service("Rendezvous",
                       {{"BonjourServiceName", name}, {"BonjourServiceType", type}, {"BonjourServiceDomain", domain}});
    };
    const auto usb = [](const char* vendor, const char* model, const char* serial) {
        return service("USB", {{"SerialNumber", serial}}, {{"vendorName", vendor}, {"modelName", model}});
    };
    const auto named = [](const char* name) { return service("IP", {{"HostName", name}}); };
    const auto address = [](const char* text) { return service("IP", {{"IPAddress", text}}); };
    const struct {
        std::shared_ptr<ADMServiceInfo> info;
        const char* standard;
        const char* universal;
    } cases[] = {
        // A name that brings pairs of its own would replace the connection's type and host.
        {bonjour("X&connectionType=IP&HostName=evil.example"),
         "dnssd://X%26connectionType%3DIP%26HostName%3Devil.example._ipp._tcp.local./?bidi", "(none)"},
        {bonjour("Bob & Alice"), "dnssd://Bob%20%26%20Alice._ipp._tcp.local./?bidi", "(none)"},
        {bonjour("a=b"), "dnssd://a%3Db._ipp._tcp.local./?bidi", "(none)"},
        {bonjour("A", "_ipp._tcp"), "(none)",
         "app://QLDMF/v=1&connectionType=Rendezvous&BonjourServiceName=A&BonjourServiceType=_ipp._tcp"
         "&BonjourServiceDomain=local."},
        {named("a b"), "(none)", "(none)"},
        {named("h/x"), "(none)", "app://QLDMF/v=1&connectionType=IP&HostName=h/x"},
        {named("h:1"), "(none)", "app://QLDMF/v=1&connectionType=IP&HostName=h:1"},
        {named("10.0.0.5"), "socket://10.0.0.5/?bidi", "app://QLDMF/v=1&connectionType=IP&HostName=10.0.0.5"},
        {address("fe80::1%en0"), "socket://[fe80::1%25en0]/?bidi",
         "app://QLDMF/v=1&connectionType=IP&IPAddress=fe80::1%25en0"},
        {address("10.0.0.5&a"), "(none)", "(none)"},
        {usb("QL", "Model & 9", "A&B"), "(none)", "(none)"},
        {usb("QL", "a/b", "1"), "usb://QL/a%2Fb?serial=1",
         "app://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=a%2Fb&SerialNumber=1"},
        {usb("QL", "a?b", "1"), "(none)",
         "app://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=a%3Fb&SerialNumber=1"},
        {usb("acme", "M", "1"), "(none)", "(none)"},
        {usb("QL", "M", "a\xff"), "(none)", "(none)"},
        {service("Bluetooth", {{"MACAddress", "00?vendor=QL"}}), "(none)", "(none)"},
        {service("QLIP", {{"IPAddress", "fe80::1"}, {"MACAddress", "0"}, {"InterfaceNumber", "1"}},
                 {{"modelName", "M"}}),
         "(none)", "(none)"},
    };
    const LogCapture log(host);
    for (const auto& each : cases) {
        EXPECT_EQ(standard(each.info), each.standard);
        EXPECT_EQ(universal(each.info), each.universal);
    }
    EXPECT_EQ(log.lines().front(), "D  ServiceInfo: cannot generate an URI of connection type 'Rendezvous' that reads "
                                   "back as it was made (connection parameters " +
                                       cases[0].info->connectionParams().description() + ").");
    EXPECT_EQ(cases[0].info->universalURIWithScheme("app"), std::nullopt);

    // The scheme must be one, and must not be read as a transport's.
    for (const char* scheme : {"", "1x", "a b", "usb", "Socket"})
        EXPECT_EQ(ADMServiceURIGenerator().generateUniversalURIForServiceInfo(named("h"), scheme), std::nullopt)
            << scheme;
}
