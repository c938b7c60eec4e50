#include <signal.h>

#include <gmock/gmock.h>

#include <dmf/platform/Value.h>

#include "UsbFixture.h"
#include "support/Process.h"

using testing::HasSubstr;

namespace {

/// The tool, as a program of its own that sees the same emulated USB.
class UsbTool : public UsbFixture {
protected:
    static std::vector<std::string> command(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), DMF_BUILD_FOLDER "/bin/dmf");
        return arguments;
    }
    static Process::Result dmf(const std::vector<std::string>& arguments, const std::string& input = {})
    {
        return Process::run(command(arguments), input);
    }
};
} // namespace

TEST_F(UsbTool, FollowsResolvesAsksAndPrints)
{
    const auto printer = usb->prepare({});
    printer->answerDeviceId("MFG:QL;MDL:Model 9;SN:SN0001;BD:1,2;");
    {
        // By itself: umockdev knows the listeners of all programs by the numbers of their descriptors alone.
        Process follow(command({"discover", "--types", "USB", "--follow"}));
        usb->plug();
        EXPECT_EQ(follow.readLine(), std::string("+ ") + kNine + "  (QL Model 9)");
        usb->unplug("1-1");
        EXPECT_EQ(follow.readLine(), std::string("- ") + kNine + "  (QL Model 9)");
        follow.signal(SIGINT);
        follow.wait();
    }
    usb->plug(printer);

    const auto resolved = dmf({"resolve", kNine});
    EXPECT_EQ(resolved.status, 0) << resolved.err;
    EXPECT_THAT(resolved.out, HasSubstr("USBLocationID: 1-1"));
    const auto id = dmf({"device-id", kNine});
    EXPECT_EQ(id.status, 0) << id.err;
    EXPECT_THAT(id.out, HasSubstr("deviceId: MFG:QL;MDL:Model 9;SN:SN0001;BD:1,2;"));
    EXPECT_THAT(id.out, HasSubstr("model: Model 9"));
    const auto sent = dmf({"send", kNine}, "a page");
    EXPECT_EQ(sent.status, 0) << sent.err;
    EXPECT_EQ(printer->taken(), "a page");
    EXPECT_THAT(dmf({"doctor"}).out, HasSubstr("good     usb: Model 9 (/dev/bus/usb/001/002)"));

    printer->setClaimedByOther(true);
    EXPECT_THAT(dmf({"doctor"}).out, HasSubstr("another program uses it"));
    EXPECT_EQ(dmf({"device-id", kNine}).status, 1);
    EXPECT_NE(dmf({"send", kNine}, "a page").status, 0);
    usb->unplug("1-1");
    EXPECT_EQ(dmf({"device-id", kNine}).status, 4);
    EXPECT_THAT(dmf({"doctor"}).out, HasSubstr("good     usb: no printer is plugged in"));
}

TEST_F(UsbTool, ListsWhatMayNotBeUsedAndSaysWhatToDo)
{
    usb->plug({.hasNode = false});
    const auto found = dmf({"discover", "--types", "USB", "--timeout", "2"});
    EXPECT_EQ(found.status, 0);
    EXPECT_THAT(found.out, HasSubstr(kNine));
    EXPECT_THAT(found.err, HasSubstr("/dev/bus/usb/001/002 is not there"));
    EXPECT_THAT(dmf({"doctor"}).out, HasSubstr("hand /dev/bus/usb in"));
    EXPECT_NE(dmf({"send", kNine}, "a page").status, 0);
}
