#include "../device/Descriptors.h"

#include <gtest/gtest.h>

using dmf::usb::Descriptors;

namespace {
const std::vector<std::uint8_t> kDevice = {18, 1, 0, 2, 0, 0, 0, 64, 0x34, 0x12, 0x78, 0x56, 0, 1, 1, 2, 3, 1};
const std::vector<std::uint8_t> kConfiguration = {9, 2, 32, 0, 1, 3, 0, 0xC0, 0};
const std::vector<std::uint8_t> kPrinter = {9, 4, 0, 1, 2, 7, 1, 2, 0};
const std::vector<std::uint8_t> kOut = {7, 5, 0x01, 2, 0x00, 0x02, 0};
const std::vector<std::uint8_t> kIn = {7, 5, 0x82, 2, 64, 0, 0};

std::vector<std::uint8_t> joined(std::initializer_list<std::vector<std::uint8_t>> parts)
{
    std::vector<std::uint8_t> result;
    for (const auto& part : parts)
        result.insert(result.end(), part.begin(), part.end());
    return result;
}
} // namespace

TEST(UsbDescriptors, TellInterfacesWithTheirEndpoints)
{
    const auto read = Descriptors::read(joined({kDevice, kConfiguration, {5, 0x24, 1, 2, 3}, kPrinter, kOut, kIn}));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->vendorId, 0x1234);
    EXPECT_EQ(read->productId, 0x5678);
    const auto* const configuration = read->configuration(3);
    ASSERT_TRUE(configuration && configuration->interfaces.size() == 1);
    const auto& printer = configuration->interfaces[0];
    EXPECT_EQ(printer.alternate, 1);
    EXPECT_EQ(printer.protocol, 2);
    ASSERT_TRUE(printer.bulk(false) && printer.bulk(true));
    EXPECT_EQ(printer.bulk(false)->maxPacketSize, 512);
    EXPECT_EQ(printer.bulk(true)->address, 0x82);
    EXPECT_EQ(read->configuration(9), configuration) << "the first stands in for one that is not there";
}

TEST(UsbDescriptors, ReadNothingPastTheirEndAndNothingThatDoesNotFit)
{
    const auto whole = joined({kDevice, kConfiguration, kPrinter, kOut, kIn});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        // On memory of exactly that size, so that the sanitizers see every step too far.
        const std::vector<std::uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(Descriptors::read(cut).has_value(), length >= kDevice.size()) << length;
    }
    EXPECT_FALSE(Descriptors::read(joined({{9}, kDevice})));
    // What lies past a part of impossible length is not said; parts without their owner are nobody's.
    for (const std::uint8_t length : std::initializer_list<std::uint8_t>{0, 1, 200}) {
        const auto read = Descriptors::read(joined({kDevice, kConfiguration, {length, 4}, kPrinter}));
        ASSERT_TRUE(read && read->configuration(3));
        EXPECT_TRUE(read->configuration(3)->interfaces.empty());
    }
    const auto orphans = Descriptors::read(joined({kDevice, kPrinter, kOut}));
    ASSERT_TRUE(orphans);
    EXPECT_EQ(orphans->configuration(1), nullptr);
    // Short ones of their kind say nothing.
    const auto terse = Descriptors::read(joined({kDevice, kConfiguration, {4, 4, 0, 0}, kPrinter, {3, 5, 1}, kIn}));
    ASSERT_TRUE(terse);
    EXPECT_EQ(terse->configuration(3)->interfaces.size(), 1u);
    EXPECT_EQ(terse->configuration(3)->interfaces[0].bulk(false), nullptr);
}
