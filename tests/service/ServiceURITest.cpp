#include <dmf/ADMServiceURI.h>

#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include <gtest/gtest.h>

#include "support/HostFixture.h"

namespace {

using URI = ADMServiceURI;

std::string textOf(const std::shared_ptr<ADMServiceURIImp>& uri)
{
    return uri ? uri->stringRepresentation() : "(none)";
}

struct ServiceURI : testing::Test {
    HostFixture host;
};

} // namespace

TEST_F(ServiceURI, IsWrittenInTheFormOfItsTransportOrOfTheCallersSchemeOrNotAtAll)
{
    const struct {
        std::shared_ptr<ADMServiceURIImp> uri;
        const char* expected;
    } cases[] = {
        {URI::USBServiceURIWithProductName("M/1", "QL", "a&b"), "usb://QL/M%2F1?serial=a%26b"},
        {URI::networkServiceURIWithIPAddress("fe80::1%en0"), "socket://[fe80::1%25en0]/?bidi"},
        {URI::networkServiceURIWithIPAddress("fe80::1%en0%25"), "socket://[fe80::1%25en0%25]/?bidi"},
        {URI::bonjourServiceURIWithServiceName("Office Printer", {}, {}),
         "dnssd://Office%20Printer._pdl-datastream._tcp.local./?bidi"},
        {URI::bonjourServiceURIWithServiceName("A", "_ipp._tcp", {}), "dnssd://A._ipp._tcplocal./?bidi"},
        {URI::networkServiceURIWithIPAddress("fe80::1%en0", "myapp"),
         "myapp://QLDMF/v=1&connectionType=IP&IPAddress=fe80::1%25en0"},
    };
    for (const auto& [uri, expected] : cases)
        EXPECT_EQ(textOf(uri), expected);
    EXPECT_EQ(ADMServiceURIImp::initWithString("no scheme"), nullptr);
    EXPECT_EQ(URI::networkServiceURIWithHostName("two words"), nullptr);
    EXPECT_EQ(URI::networkServiceURIWithHostName(std::string_view("zero\0byte", 9)), nullptr);
    EXPECT_EQ(URI::networkServiceURIWithHostName("h", "1:scheme"), nullptr);
    EXPECT_EQ(URI::USBServiceURIWithProductName("M", "two words", "1"), nullptr);
    // Only the first "%" of a zone is taken for its separator; a second one must be an escape.
    EXPECT_EQ(URI::networkServiceURIWithIPAddress("fe80::1%en0%"), nullptr);
}

TEST_F(ServiceURI, FollowsTheSystemVersionOfTheMoment)
{
    const struct {
        std::uint32_t version;
        const char* network;
        const char* bonjour;
    } cases[] = {
        {0x1030, "socket://h", "mdns://N._pdl-datastream._tcp.local."},
        {0x1031, "socket://h/?bidi", "mdns://N._pdl-datastream._tcp.local./?bidi"},
        {0x105F, "socket://h/?bidi", "mdns://N._pdl-datastream._tcp.local./?bidi"},
        {0x1060, "socket://h/?bidi", "dnssd://N._pdl-datastream._tcp.local./?bidi"},
    };
    for (const auto& [version, network, bonjour] : cases) {
        host.setSystemVersion(version);
        EXPECT_EQ(textOf(URI::networkServiceURIWithHostName("h")), network) << std::hex << version;
        EXPECT_EQ(textOf(URI::bonjourServiceURIWithServiceName("N", {}, {})), bonjour) << std::hex << version;
    }
}
