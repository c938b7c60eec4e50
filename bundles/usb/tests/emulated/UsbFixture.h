#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <dmf/ADMServiceDiscoveryBase.h>

#include "support/TurnUntil.h"
#include "support/usb/EmulatedUsb.h"

/// The device that is plugged in unless another is told.
inline constexpr const char* kNine = "usb://QL/Model%209?serial=SN0001";

/// How many threads of this program have a name that begins so.
inline int threadsNamed(const std::string& prefix)
{
    int count = 0;
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name.starts_with(prefix);
    }
    return count;
}

/// A test with a USB of its own, which leaves no thread behind that could still look at it.
class UsbFixture : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto problem = EmulatedUsb::problem(); !problem.empty())
            GTEST_SKIP() << problem;
        usb = std::make_unique<EmulatedUsb>();
    }
    void TearDown() override
    {
        EXPECT_TRUE(turnUntil([] { return !ADMServiceDiscoveryBase::runloop() && threadsNamed("dmf-usb") == 0; }));
        usb = nullptr;
    }

    std::unique_ptr<EmulatedUsb> usb;
};
