#include "../ServiceName.h"
#include "../TxtRecord.h"

#include <gtest/gtest.h>

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

using dmf::dnssd::Identity;
using dmf::dnssd::ServiceName;
using dmf::dnssd::TxtRecord;

TEST(DnssdServiceName, EveryNameComesBackFromItsURI)
{
    for (const char* const name : {"Office Printer",
                                   "a.b.c",
                                   ".",
                                   "..",
                                   "50% off",
                                   "100%25",
                                   "%2e",
                                   "say \"hi\" & 'bye'",
                                   "c:/d\\e",
                                   "#1?",
                                   "[::1]:80",
                                   "@home",
                                   "a=b&c=d;e,f+g",
                                   "Drucker im Büro",
                                   "プリンター",
                                   "🖨 \xC2\xA0",
                                   "._ipp._tcp.local.",
                                   "_ipp",
                                   "name._pdl-datastream._tcp.local.",
                                   " leading and trailing ",
                                   "{}|^`~<>"}) {
        const ServiceName service{name, "_ipp._tcp", "local"};
        const auto uri = service.uri();
        ASSERT_TRUE(uri) << name;
        const auto info = ADMServiceInfoImp::serviceInfoWithURI(*uri, kPrinterDeviceClass);
        ASSERT_TRUE(info) << *uri;
        EXPECT_EQ(ServiceName::fromParameters(info->connectionParams()), service) << *uri;
        EXPECT_EQ(info->deviceName(), name);
    }
    // No service's name holds control characters.
    for (const char* const name : {"a\nb", "\x1B[2J", "tab\t", "del\x7F", "csi\xC2\x9B"})
        EXPECT_FALSE((ServiceName{name, "_ipp._tcp", "local"}.uri())) << name;
    // The form of the URI has room for one label, and a zero byte would end the name early.
    EXPECT_FALSE((ServiceName{"Office", "_ipp._tcp", "example.com"}.uri()));
    EXPECT_FALSE((ServiceName{std::string("a\0b", 3), "_ipp._tcp", "local"}.uri()));
}

TEST(DnssdServiceName, ParametersAreCompletedOrRefused)
{
    EXPECT_EQ(ServiceName::fromParameters({{"BonjourServiceName", "A"}, {"BonjourServiceType", "_ipp._tcp."}}),
              (ServiceName{"A", "_pdl-datastream._tcp", "local"}));
    EXPECT_FALSE(ServiceName::fromParameters({{"BonjourServiceType", "_ipp._tcp."}}));
    EXPECT_FALSE(ServiceName::fromParameters({{"BonjourServiceName", ""}}));
    EXPECT_EQ((ServiceName{"OFFICE Ä", "_IPP._tcp", "local"}.key()),
              (ServiceName{"office Ä", "_ipp._TCP", "LOCAL"}.key()));
    EXPECT_NE((ServiceName{"office Ä", "_ipp._tcp", "local"}.key()),
              (ServiceName{"office ä", "_ipp._tcp", "local"}.key()));
}

TEST(DnssdTxtRecord, FirstKeyWinsAndAnyEntryIsHarmless)
{
    const std::string huge(1 << 20, 'x');
    const TxtRecord record({"ty=First", "TY=Second", "", "=no key", "=", "flag", "empty=", "empty=late", "flag=late",
                            "raw=\xFF\xFE", "zero=" + std::string("a\0b", 3), "bell=\a", "equation=a=b=c",
                            "blank=   ", "padded=  text ", "note=" + huge, huge});
    EXPECT_EQ(record.text("ty"), "First");
    EXPECT_EQ(record.text("equation"), "a=b=c");
    EXPECT_EQ(record.text("padded"), "text");
    for (const char* const key : {"", "flag", "empty", "raw", "zero", "bell", "blank", "note", "missing"})
        EXPECT_FALSE(record.text(key)) << key;
    TxtRecord(std::vector<std::string>(100'000, "k=v"));
}

TEST(DnssdTxtRecord, TellsWhoTheDeviceIsUnderTheKeysOfTheField)
{
    struct Case {
        std::vector<std::string> entries;
        Identity expected;
    };
    const Case cases[] = {
        {{"usb_MFG=QL", "usb_MDL=Model 9", "ty=QL Model 9 Series", "usb_SN=CN1", "UUID=e3248000-80ce"},
         {"QL", "Model 9", "CN1", "e3248000-80ce"}},
        {{"mfg=QL", "mdl=Scan 5", "serialNumber=CN2"}, {"QL", "Scan 5", "CN2"}},
        {{"usb_MFG=", "mfg=QL", "ty=ql Model 9"}, {"QL", "Model 9", {}}},
        {{"product=(Model 9)"}, {{}, "Model 9", {}}},
        {{"product=( Model 9 )"}, {{}, "Model 9", {}}},
        {{"usb_MFG=QL", "product=( QL Model 9)"}, {"QL", "Model 9", {}}},
        {{"product=( )"}, {}},
        {{"product=()"}, {}},
        {{"ty=QL Model 9"}, {{}, "QL Model 9", {}}},
        {{"usb_MFG=QL", "ty=QL"}, {"QL", "QL", {}}},
        {{"usb_MFG=QL", "ty=QLX 5"}, {"QL", "QLX 5", {}}},
        {{"usb_MFG=\xC3\x28", "usb_MDL=a\nb"}, {}},
        {{}, {}},
    };
    for (const auto& each : cases) {
        const auto identity = TxtRecord(each.entries).identity();
        EXPECT_EQ(identity.vendor, each.expected.vendor) << each.entries.size();
        EXPECT_EQ(identity.model, each.expected.model);
        EXPECT_EQ(identity.serialNumber, each.expected.serialNumber);
        EXPECT_EQ(identity.uuid, each.expected.uuid);
    }
}
