#include "UsbConnection.h"

namespace dmf::usb {

namespace {
constexpr std::chrono::milliseconds kFarewell{900};
constexpr std::chrono::milliseconds kWithdrawal{500};
} // namespace

std::uint32_t UsbConnection::withdrawWrite() noexcept
{
    return line_->withdraw(Clock::now() + kWithdrawal);
}

void UsbConnection::disconnect() noexcept
{
    line_->shut(Clock::now() + kFarewell);
}

} // namespace dmf::usb
