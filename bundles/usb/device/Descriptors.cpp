#include "Descriptors.h"

#include <algorithm>

namespace dmf::usb {

namespace {
// Kinds of descriptors, and how long each must be at least to say what is read of it.
constexpr std::uint8_t kDevice = 1, kConfiguration = 2, kInterface = 4, kEndpoint = 5;
constexpr std::size_t kDeviceLength = 18, kConfigurationLength = 9, kInterfaceLength = 9, kEndpointLength = 7;
/// A bus cannot tell more of them apart.
constexpr std::size_t kMostConfigurations = 255, kMostInterfaces = 1024, kMostEndpoints = 32;

std::uint16_t littleEndian(std::span<const std::uint8_t> bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

void readConfiguration(Descriptors& into, std::span<const std::uint8_t> part)
{
    if (part.size() >= kConfigurationLength && into.configurations.size() < kMostConfigurations)
        into.configurations.push_back({part[5], {}});
}

void readInterface(Descriptors& into, std::span<const std::uint8_t> part)
{
    if (part.size() < kInterfaceLength || into.configurations.empty())
        return;
    auto& interfaces = into.configurations.back().interfaces;
    if (interfaces.size() < kMostInterfaces)
        interfaces.push_back({part[2], part[3], part[5], part[6], part[7], {}});
}

void readEndpoint(Descriptors& into, std::span<const std::uint8_t> part)
{
    if (part.size() < kEndpointLength || into.configurations.empty() || into.configurations.back().interfaces.empty())
        return;
    auto& endpoints = into.configurations.back().interfaces.back().endpoints;
    // The upper bits of the size tell how often a packet is repeated, which bulk endpoints do not do.
    const auto size = static_cast<std::uint16_t>(littleEndian(part, 4) & 0x7FF);
    if (endpoints.size() < kMostEndpoints)
        endpoints.push_back({part[2], part[3], size});
}
} // namespace

const Endpoint* Interface::bulk(bool in) const noexcept
{
    const auto found = std::find_if(endpoints.begin(), endpoints.end(), [in](const Endpoint& each) {
        return each.isBulk() && each.isIn() == in && each.maxPacketSize > 0;
    });
    return found != endpoints.end() ? &*found : nullptr;
}

std::optional<Descriptors> Descriptors::read(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < kDeviceLength || bytes[0] < kDeviceLength || bytes[1] != kDevice)
        return std::nullopt;
    Descriptors result;
    result.vendorId = littleEndian(bytes, 8);
    result.productId = littleEndian(bytes, 10);
    while (bytes.size() >= 2) {
        const std::size_t length = bytes[0];
        if (length < 2 || length > bytes.size())
            break;
        const auto part = bytes.first(length);
        switch (part[1]) {
        case kConfiguration: readConfiguration(result, part); break;
        case kInterface: readInterface(result, part); break;
        case kEndpoint: readEndpoint(result, part); break;
        default: break; // of some class or other
        }
        bytes = bytes.subspan(length);
    }
    return result;
}

const Configuration* Descriptors::configuration(int value) const noexcept
{
    const auto found = std::find_if(configurations.begin(), configurations.end(),
                                    [value](const Configuration& each) { return each.value == value; });
    if (found != configurations.end())
        return &*found;
    return configurations.empty() ? nullptr : &configurations.front();
}

} // namespace dmf::usb
