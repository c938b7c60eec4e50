#include "UsbProvider.h"

#include <dmf/ADMServiceInfo.h>
#include <dmf/DMLog.h>

#include "UsbConnection.h"
#include "UsbDevice.h"

namespace dmf::usb {

namespace {
constexpr std::uint32_t kReadPacket = 16 * 1024, kWritePacket = 64 * 1024;
} // namespace

UsbProvider::UsbProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent,
                         std::shared_ptr<ADMCoreModelInfo> info, std::shared_ptr<IDMDevice> device,
                         std::string channelName)
    : TransportProvider(parent, std::move(info), std::move(device)), channelName_(std::move(channelName))
{
}

ADMConnectionProvider::Status UsbProvider::connect(std::shared_ptr<TransportConnection>& connection)
{
    const auto usb = std::dynamic_pointer_cast<UsbDevice>(device());
    if (!usb)
        return ProviderStatus::invalidParameter;
    const auto attached = usb->find();
    const auto* const configuration = attached ? attached->configuration() : nullptr;
    if (!configuration)
        return ProviderStatus::failed;
    const auto identity = Identity::of(*attached, attached->kernelDeviceId);
    const auto choice = chooseInterface(*configuration, channelName_,
                                        identity ? transportRowsOfModel(identity->model) : TransportRows());
    if (!choice)
        return ProviderStatus::invalidParameter;
    const auto line = std::make_shared<Line>(*attached, *choice);
    if (!line->start())
        return ProviderStatus::failed;
    const auto state = line->awaitOpening([this] { return isGivenUp(); });
    if (state != Line::State::open) {
        line->shut(Line::Clock::now());
        if (state == Line::State::opening)
            return ProviderStatus::cancelled;
        DMFLog("warnings", "Channel: USB: %@", line->reason());
        return line->failure() == Claim::Failure::busy ? ProviderStatus::busy : ProviderStatus::failed;
    }
    usb->setLine(line);
    connection = std::make_shared<UsbConnection>(line);
    setMaxPacketSizes(kReadPacket, kWritePacket);
    return ProviderStatus::success;
}

std::int16_t UsbChannel::createAndOpenProviderWithTimeout(double)
{
    const auto made = ADMConnectionProvider::initWithParent<UsbProvider>(shared_from_this(), nullptr,
                                                                         serviceInfo()->device(), name());
    if (!made)
        return ProviderStatus::invalidParameter; // the device has gone meanwhile
    setProvider(made);
    return made->open();
}

} // namespace dmf::usb
