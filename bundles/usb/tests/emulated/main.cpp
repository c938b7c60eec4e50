#include <gmock/gmock.h>

#include "support/usb/EmulatedUsb.h"

int main(int count, char** arguments)
{
    EmulatedUsb::beginEmulation(arguments);
    testing::InitGoogleMock(&count, arguments);
    return RUN_ALL_TESTS();
}
