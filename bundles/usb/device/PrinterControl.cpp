#include "PrinterControl.h"

#include <vector>

#include "DeviceId.h"

namespace dmf::usb {

namespace {
constexpr std::uint8_t kReadFromInterface = 0xA1, kWriteToInterface = 0x21, kWriteToOther = 0x23;
constexpr std::uint8_t kGetDeviceId = 0, kGetPortStatus = 1, kSoftReset = 2;
/// Some devices answer nothing at all when more is asked for than they have room for.
constexpr std::size_t kLongestDeviceId = 1024;
} // namespace

std::optional<std::string> readDeviceId(const ControlTransfer& transfer, int configurationIndex,
                                        const Interface& interface)
{
    std::vector<std::uint8_t> answer(kLongestDeviceId);
    const auto index = static_cast<std::uint16_t>(interface.number << 8 | interface.alternate);
    const auto count =
        transfer({kReadFromInterface, kGetDeviceId, static_cast<std::uint16_t>(configurationIndex), index}, answer);
    if (!count || *count > answer.size())
        return std::nullopt;
    return deviceIdIn({answer.data(), *count});
}

std::optional<std::uint8_t> readPortStatus(const ControlTransfer& transfer, const Interface& interface)
{
    std::uint8_t status = 0;
    const auto count = transfer({kReadFromInterface, kGetPortStatus, 0, interface.number}, {&status, 1});
    return count == 1U ? std::optional(status) : std::nullopt;
}

bool resetPort(const ControlTransfer& transfer, const Interface& interface)
{
    // Devices built by the first edition of the class's rules know the request by another recipient only.
    return transfer({kWriteToInterface, kSoftReset, 0, interface.number}, {}).has_value() ||
           transfer({kWriteToOther, kSoftReset, 0, interface.number}, {}).has_value();
}

} // namespace dmf::usb
