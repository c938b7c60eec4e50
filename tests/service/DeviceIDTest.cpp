#include <dmf/DMDeviceID.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Parsed {
    bool result = false;
    std::string model, manufacturer, description;
};

Parsed parse(const char* deviceID)
{
    char* outputs[3] = {};
    Parsed parsed{ParseDeviceStatusString(deviceID, &outputs[0], &outputs[1], &outputs[2]), {}, {}, {}};
    std::string* const texts[] = {&parsed.model, &parsed.manufacturer, &parsed.description};
    for (int i = 0; i < 3; ++i) {
        *texts[i] = outputs[i] ? outputs[i] : "<none>";
        std::free(outputs[i]);
    }
    return parsed;
}

} // namespace

TEST(DeviceID, ValuesAreFoundByEitherKeyWithoutRegardToCase)
{
    EXPECT_EQ(DeviceIDCreateValueList("MFG:QL;MDL:Model 9;", "MANUFACTURER:", "MFG:"), "QL");
    EXPECT_EQ(DeviceIDCreateValueList("MANUFACTURER:  QL ;", "MANUFACTURER:", "MFG:"), "QL ");
    EXPECT_EQ(DeviceIDCreateValueList("mdl:x;", "MODEL:", "MDL:"), "x");
    EXPECT_EQ(DeviceIDCreateValueList("MDL:   ", "MDL:"), "");
    EXPECT_EQ(DeviceIDCreateValueList("COMMENT:SN:7;SN:8", "SN:"), "7"); // wherever the key stands
    EXPECT_EQ(DeviceIDCreateValueList("", "SN:", "SERN:"), std::nullopt);
}

TEST(DeviceID, EveryRequestedOutputMustBeFound)
{
    std::optional<std::string> model, manufacturer = "stale";
    EXPECT_TRUE(ParseDeviceStatusCFString("MDL:Model 9", &model, nullptr, nullptr));
    EXPECT_EQ(model, "Model 9");
    EXPECT_FALSE(ParseDeviceStatusCFString("MDL:Model 9", &model, &manufacturer, nullptr));
    EXPECT_EQ(manufacturer, std::nullopt);
    EXPECT_TRUE(ParseDeviceStatusCFString("anything", nullptr, nullptr, nullptr));
}

TEST(DeviceID, CStringsAreMatchedByCaseAndByTheFirstFieldThatFits)
{
    const auto usual = parse("MFG:QL;MDL:Model 9;DES:Model 9 Printer;SN:CN1234;");
    EXPECT_TRUE(usual.result);
    EXPECT_EQ(usual.manufacturer, "QL");
    EXPECT_EQ(usual.model, "Model 9");
    EXPECT_EQ(usual.description, "Model 9 Printer");

    EXPECT_EQ(parse("mdl:x;").model, "<none>");
    const auto twice = parse("MODEL:first;MODEL:second;MODEL:third;no colon;MFG:a:b");
    EXPECT_EQ(twice.model, "first");
    EXPECT_EQ(twice.description, "second");
    EXPECT_EQ(twice.manufacturer, "a:b");
    char nobodys[] = "";
    char* stale = nobodys;
    EXPECT_FALSE(ParseDeviceStatusString(nullptr, &stale, nullptr, nullptr));
    EXPECT_EQ(stale, nullptr);
    EXPECT_TRUE(parse(";;;:;").result);
}

TEST(DeviceID, BidirectionalChannelsAreReadFromTheFirstSuchField)
{
    EXPECT_TRUE(CheckBiDiChannelExists("MFG:QL;BD:1,2;", 2));
    EXPECT_TRUE(CheckBiDiChannelExists(" \tBD:x, 1 ,7", 1));
    EXPECT_FALSE(CheckBiDiChannelExists("BD:1;BD:2", 2));
    EXPECT_FALSE(CheckBiDiChannelExists("BD:65537,18446744073709551617", 1)); // beyond 16 and 64 bits, no wrap
    EXPECT_FALSE(CheckBiDiChannelExists(nullptr, 1));
}

TEST(DeviceID, SupportedValuesGiveThePlaceOfTheItem)
{
    EXPECT_EQ(DeviceIDSupportedValue("pcl, postscript", "CMD:PJL,POSTSCRIPT;", "CMD:"), (DMRange{5, 10}));
    EXPECT_EQ(DeviceIDSupportedValue("xpcl,pcl", "CMD:pcl;", "CMD:"), (DMRange{0, 8}));
    // Only the alternate key occurs: the item must begin with the device's item.
    EXPECT_EQ(DeviceIDSupportedValue("xpcl,pcl5", "CMD:pcl;", "COMMAND SET:", "CMD:"), (DMRange{5, 4}));
    EXPECT_EQ(DeviceIDSupportedValue("tiff", "CMD:pcl;", "CMD:"), (DMRange{-1, 0}));
    EXPECT_EQ(DeviceIDSupportedValue("pcl", "CMD: ,,;", "CMD:"), (DMRange{-1, 0}));
}

TEST(DeviceID, AnyBytesAreTaken)
{
    std::string hostile(2'000'000, ';');
    for (std::size_t i = 0; i < hostile.size(); i += 3)
        hostile[i] = static_cast<char>(i);
    EXPECT_EQ(DeviceIDCreateValueList(hostile + "MFG:\xff\xfe;", "MFG:"), "\xff\xfe");
    for (char& c : hostile)
        c = c == 0 ? 'x' : c;
    EXPECT_TRUE(parse(hostile.c_str()).result);
    EXPECT_EQ(DelimitSubstring("abc", ";", -5, 100, DMCompareOptions::none), (DMRange{0, 3}));
    EXPECT_EQ(DelimitSubstring("abc", ";", 7, 100, DMCompareOptions::none), (DMRange{3, 0}));
}
