#include <dmf/ADMDeviceBase.h>

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <dmf/ADMModelInfo.h>

namespace {

/// A device that gives whatever device ID the test wants, and counts how often it is asked.
class Device final : public ADMDeviceBase {
public:
    explicit Device(std::optional<std::string> said) : ADMDeviceBase({}, nullptr), deviceID(std::move(said)) {}
    std::optional<std::string> newRetrievedDeviceIDWithTimeout(double timeout) override
    {
        ++asked;
        lastTimeout = timeout;
        return deviceID;
    }
    std::optional<std::string> deviceID;
    int asked = 0;
    double lastTimeout = 0;
};

} // namespace

TEST(DeviceBase, TheDeviceIDIsAskedForOnceAndToldInParts)
{
    Device device("MFG:short;MANUFACTURER:QL;MDL:Aurora 210;DES:The office printer;SN:CN12 34;");
    EXPECT_EQ(device.vendor(), "QL");
    EXPECT_EQ(device.model(), "Aurora 210");
    EXPECT_EQ(device.name(), "The office printer");
    EXPECT_EQ(device.serialNumber(), "CN12 34");
    EXPECT_EQ(device.asked, 1);
    EXPECT_EQ(device.lastTimeout, 5.0);
    ASSERT_NE(device.modelInfo(), nullptr);
    EXPECT_EQ(device.modelInfo()->modelName(), "Aurora 210");
    EXPECT_EQ(device.modelInfo(), device.modelInfo());

    Device nameless("MDL:Aurora 210;");
    EXPECT_EQ(nameless.name(), std::nullopt) << "the model stands in once it was asked for";
    EXPECT_EQ(nameless.model(), "Aurora 210");
    EXPECT_EQ(nameless.name(), "Aurora 210");
}

TEST(DeviceBase, ASilentDeviceIsAskedAgain)
{
    Device device(std::nullopt);
    EXPECT_EQ(device.vendor(), std::nullopt);
    EXPECT_EQ(device.modelInfo(), nullptr);
    EXPECT_FALSE(device.isReachable());
    EXPECT_GT(device.lastTimeout, 1e9); // without a bound of its own
    device.deviceID = "MFG:QL;";
    EXPECT_EQ(device.vendor(), "QL");
    EXPECT_TRUE(device.isReachable());
}

TEST(DeviceBase, VendorsAreServedByTheirWholeNameInAnyLetterCase)
{
    for (const char* name : {"QL", "ql", "Tessaly-Corvan", "TESSALY-corvan"})
        EXPECT_TRUE(ADMDeviceBase::isSupportedVendorName(name)) << name;
    for (const char* name : {"", "ql inc", "Q", "acme"})
        EXPECT_FALSE(ADMDeviceBase::isSupportedVendorName(name)) << name;
    EXPECT_FALSE(ADMDeviceBase::isSupportedVendorName(std::nullopt));
}
