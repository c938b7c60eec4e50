#include "../device/DeviceId.h"

#include <gtest/gtest.h>

using dmf::usb::deviceIdIn;
using dmf::usb::namesIn;

namespace {
std::optional<std::string> idIn(const std::string& answer)
{
    const std::vector<std::uint8_t> bytes(answer.begin(), answer.end());
    return deviceIdIn(bytes);
}
} // namespace

TEST(UsbDeviceId, IsReadFromAnswersOfEveryQuality)
{
    using namespace std::string_literals;
    const auto none = std::optional<std::string>();
    const struct {
        const char* what;
        std::string answer;
        std::optional<std::string> id;
    } rows[] = {
        {"right", "\0\x10MFG:QL;MDL:M9;"s, "MFG:QL;MDL:M9;"},
        {"without itself", "\0\x0EMFG:QL;MDL:M9;"s, "MFG:QL;MDL:M9;"},
        {"in the other byte order", "\x10\0MFG:QL;MDL:M9;"s, "MFG:QL;MDL:M9;"},
        {"too long", "\x04\x00MFG:QL;MDL:M9;"s, "MFG:QL;MDL:M9;"},
        {"zero", "\0\0MFG:QL;"s, "MFG:QL;"},
        {"padded", "\0\x09MFG:QL;\x01\x02\x03\x04\x05"s, "MFG:QL;"},
        {"filled with zeros", "\0\x40MFG:QL;"s + std::string(55, '\0'), "MFG:QL;"},
        {"cut in the middle", "\0\x40MFG:QL;MD"s, "MFG:QL;MD"},
        {"only its length", "\0\x02"s, none},
        {"one byte", "\0"s, none},
        {"nothing", ""s, none},
        {"no field", "\0\x08printer"s, none},
        {"noise", "\xFF\xFF\x80\x90"s, none},
    };
    for (const auto& row : rows)
        EXPECT_EQ(idIn(row.answer), row.id) << row.what;
    EXPECT_EQ(idIn("\xFF\xFF"
                   "MFG:"s +
                   std::string(60'000, 'x'))
                  .value_or("")
                  .size(),
              60'004u);
}

TEST(UsbDeviceId, NamesAreThoseOfWholeFieldsInPrintableCharacters)
{
    const auto names = namesIn("manufacturer: QL ;CMD:XMDL:no;MODEL:Model 9;MDL:other;DES:;SERN:A1");
    EXPECT_EQ(names.vendor, "QL");
    EXPECT_EQ(names.model, "Model 9");
    EXPECT_EQ(names.serialNumber, "A1");
    EXPECT_EQ(names.description, std::nullopt);
    const auto odd = namesIn(";;:x;MFG:Q\xC3L;MDL:a\tb;SN:00000000;MFG:QL");
    EXPECT_EQ(odd.vendor, "QL") << "the first that is good";
    EXPECT_EQ(odd.model, std::nullopt);
    EXPECT_EQ(odd.serialNumber, std::nullopt) << "a filler is no serial number";
}
