#include "../device/Choice.h"

#include <array>

#include <gtest/gtest.h>

using dmf::usb::chooseInterface;
using dmf::usb::Configuration;
using dmf::usb::TransportRow;
using dmf::usb::TransportRows;

namespace {
Configuration device(std::initializer_list<std::array<std::uint8_t, 5>> interfaces)
{
    Configuration configuration;
    for (const auto& [number, alternate, classCode, subclass, protocol] : interfaces)
        configuration.interfaces.push_back({number, alternate, classCode, subclass, protocol, {}});
    return configuration;
}

/// "number/alternate", or "none".
std::string chosen(const Configuration& configuration, const std::string& channel, const TransportRows& rows = {})
{
    const auto choice = chooseInterface(configuration, channel, rows);
    return choice ? std::to_string(choice->interface.number) + "/" + std::to_string(choice->interface.alternate)
                  : "none";
}

TransportRow row(const char* channel, std::optional<int> classCode, std::optional<int> subclass = {},
                 std::optional<int> protocol = {}, std::optional<int> alternate = {})
{
    return {channel, classCode, subclass, protocol, alternate, {}};
}
} // namespace

TEST(UsbChoice, WithoutRowsPrintersPrintAndStorageStores)
{
    const auto all = device({{0, 0, 3, 1, 1}, {1, 0, 7, 1, 1}, {1, 1, 7, 1, 2}, {1, 2, 7, 1, 4}, {2, 0, 8, 6, 80}});
    EXPECT_EQ(chosen(all, "Print"), "1/1") << "both ways before one";
    EXPECT_EQ(chosen(all, "Storage"), "2/0");
    EXPECT_EQ(chosen(all, "Scan"), "none");
    EXPECT_EQ(chosen(device({{0, 0, 7, 1, 1}}), "Print"), "0/0");
    EXPECT_EQ(chosen(device({{0, 0, 7, 1, 3}, {0, 1, 7, 1, 4}, {1, 0, 7, 2, 2}}), "Print"), "none");
}

TEST(UsbChoice, RowsDecideAndExclude)
{
    const auto all = device({{0, 0, 255, 204, 0}, {1, 0, 7, 1, 2}, {1, 1, 7, 1, 4}, {2, 0, 7, 1, 2}});
    TransportRows rows;
    rows.channels = {row("Scan", 255, 204), row("Print", 7, 1, 4, 1), row("Print", 7, 1, 2)};
    EXPECT_EQ(chosen(all, "Scan", rows), "0/0");
    EXPECT_EQ(chosen(all, "Print", rows), "1/1");
    rows.exclusions = {row("", 7, 1, 4)};
    EXPECT_EQ(chosen(all, "Print", rows), "1/0") << "the next row";
    rows.exclusions.push_back(row("Print", 7));
    EXPECT_EQ(chosen(all, "Print", rows), "none") << "what holds without rows is excluded as well";
    EXPECT_EQ(chosen(all, "Scan", rows), "0/0");
    rows.channels = {row("Print", 9)};
    rows.exclusions.clear();
    EXPECT_EQ(chosen(all, "Print", rows), "1/0") << "a model that is built otherwise than the database says";
}
