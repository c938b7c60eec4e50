#include <dmf/ADMTransportInfo.h>

#include <algorithm>
#include <charconv>

#include <dmf/ADMInfo.h>
#include <dmf/DMKeys.h>

#include "modelinfo/model/InfoQueries.h"

using dmf::internal::children;
using dmf::internal::Info;
using dmf::internal::property;
using dmf::internal::text;

namespace {

/// The leading decimal number of a text, behind blanks; 0 without one, the nearest limit for one that is too large.
std::int32_t leadingInteger(std::string_view digits)
{
    digits.remove_prefix(std::min(digits.find_first_not_of(" \t\r\n"), digits.size()));
    if (digits.starts_with('+'))
        digits.remove_prefix(1);
    std::int32_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (result.ec != std::errc::result_out_of_range)
        return number;
    return digits.starts_with('-') ? INT32_MIN : INT32_MAX;
}

std::int32_t number(const Info& channel, std::string_view name, std::int32_t absent)
{
    const auto properties = channel ? channel->properties() : std::nullopt;
    if (!properties)
        return absent;
    const dmf::Value& value = (*properties)[name];
    if (const dmf::Number* const stored = value.asNumber())
        return stored->int32Value();
    return value.asString() ? leadingInteger(*value.asString()) : absent;
}

} // namespace

std::shared_ptr<ADMTransportInfo> ADMTransportInfo::initWithInfo(std::shared_ptr<ADMInfo> info)
{
    if (!info)
        return nullptr;
    return std::shared_ptr<ADMTransportInfo>(new ADMTransportInfo(std::move(info)));
}

ADMTransportInfo::ADMTransportInfo(std::shared_ptr<ADMInfo> info) : info_(std::move(info)) {}

std::vector<Info> ADMTransportInfo::ioChannelInfos(std::string_view name) const
{
    return children(dmf::internal::child(info_, kDMIOChannelKey, kDMName, name));
}

std::vector<Info> ADMTransportInfo::dot4Locations() const
{
    return children(dmf::internal::child(info_, "Dot4Locations"));
}

std::int32_t ADMTransportInfo::profileUUID(const Info& channel)
{
    return number(channel, "profile", 0);
}

std::optional<std::string> ADMTransportInfo::dnssdService(const Info& channel)
{
    return text(dmf::internal::child(channel, "DNS-SD"));
}

std::optional<std::string> ADMTransportInfo::ianaService(const Info& channel)
{
    return text(dmf::internal::child(channel, "IANAService"));
}

std::optional<std::string> ADMTransportInfo::channel(const Info& channel)
{
    return property(channel, "channel");
}

std::optional<std::string> ADMTransportInfo::protocol(const Info& channel)
{
    return property(channel, "protocol");
}

std::string ADMTransportInfo::portOverride(const Info& channel)
{
    return property(channel, "port-override").value_or(std::string(kDMPortOverrideNever));
}

std::int32_t ADMTransportInfo::port(const Info& channel)
{
    return number(channel, "port", 0);
}

std::int32_t ADMTransportInfo::usbAlternate(const Info& channel)
{
    return number(channel, "alternate", -1);
}

std::int32_t ADMTransportInfo::usbProtocol(const Info& channel)
{
    return number(channel, "protocol", 0);
}

std::int32_t ADMTransportInfo::usbSubclass(const Info& channel)
{
    return number(channel, "subclass", 0);
}

std::int32_t ADMTransportInfo::usbClass(const Info& channel)
{
    return number(channel, "class", 0);
}
