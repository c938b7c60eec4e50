#include <dmf/ADMTransferTicket.h>

#include <new>
#include <utility>

#include <dmf/ADMDuplexDataChannelBase.h>

namespace {
constexpr std::uint32_t kSmallestWindow = 16 * 1024;
}

ADMTransferTicket ADMTransferTicket::forRead(std::uint8_t* space, std::uint32_t length, bool wholeLength,
                                             std::uint32_t timeout)
{
    ADMTransferTicket ticket;
    ticket.space_ = space;
    ticket.length_ = ticket.window_ = length;
    ticket.wantsWholeLength_ = wholeLength;
    ticket.timeout_ = timeout;
    return ticket;
}

ADMTransferTicket ADMTransferTicket::forWrite(const std::uint8_t* bytes, std::uint32_t length, std::uint32_t timeout)
{
    ADMTransferTicket ticket;
    ticket.bytes_ = bytes;
    ticket.length_ = length;
    ticket.timeout_ = timeout;
    return ticket;
}

std::optional<ADMTransferTicket> ADMTransferTicket::forAsyncRead(std::uint32_t length, std::uint32_t packetSize,
                                                                 std::uint32_t timeout)
{
    const auto whole = length != 0 ? length : packetSize;
    // What has been told is out of the buffer, so that much can be read through a small one.
    const auto window = std::min(whole, std::max(packetSize, kSmallestWindow));
    std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[window]);
    if (!buffer || whole == 0)
        return std::nullopt;
    auto ticket = forRead(buffer.get(), whole, length != 0, timeout);
    ticket.window_ = window;
    ticket.ownedBuffer_ = std::move(buffer);
    return ticket;
}

ADMTransferTicket ADMTransferTicket::forAsyncWrite(dmf::Data data, std::uint32_t timeout)
{
    auto ticket = forWrite(data.bytes().data(), static_cast<std::uint32_t>(data.size()), timeout);
    ticket.ownedData_ = std::move(data);
    return ticket;
}

void ADMTransferTicket::tellProgress(ADMDuplexDataChannelBase* channel)
{
    const auto untold = processed_ - reported_;
    if (untold == 0)
        return;
    if (channel)
        bytes_ ? channel->writeDataOfSize(untold) : channel->readData({space_, untold});
    if (wantsWholeLength_)
        reported_ = processed_;
    else
        processed_ = 0; // the buffer serves the next block
}
