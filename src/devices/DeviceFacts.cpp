#include "devices/DeviceFacts.h"

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <algorithm>
#include <array>

#include "platform/documents/Archive.h"

namespace dmf::internal {

namespace {

char lowered(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) { return lowered(letter); });
    return text;
}

bool isHexadecimal(char letter)
{
    const char low = lowered(letter);
    return (letter >= '0' && letter <= '9') || (low >= 'a' && low <= 'f');
}

std::string trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

/// The hexadecimal digits of a text that else holds the separators only; empty when it holds anything else, another
/// count of digits, or one digit throughout: that is what devices say which were never given one.
std::string hexadecimalDigits(std::string_view text, std::string_view separators, std::size_t count)
{
    std::string digits;
    for (const char letter : text) {
        if (isHexadecimal(letter))
            digits += lowered(letter);
        else if (separators.find(letter) == std::string_view::npos)
            return {};
    }
    const bool saysNothing = digits.size() != count || digits.find_first_not_of(digits[0]) == std::string::npos;
    return saysNothing ? std::string() : digits;
}

std::string grouped(const std::string& digits, std::initializer_list<std::size_t> lengths, char separator)
{
    std::string text;
    std::size_t place = 0;
    for (const std::size_t length : lengths) {
        if (place > 0)
            text += separator;
        text += digits.substr(place, length);
        place += length;
    }
    return text;
}

std::string normalMacAddress(std::string_view text)
{
    const auto digits = hexadecimalDigits(text, ":-.", 12);
    return digits.empty() ? digits : grouped(digits, {2, 2, 2, 2, 2, 2}, ':');
}

std::string normalUuid(std::string_view text)
{
    constexpr std::string_view kPrefix = "urn:uuid:";
    if (lowered(std::string(text.substr(0, kPrefix.size()))) == kPrefix)
        text.remove_prefix(kPrefix.size());
    const auto digits = hexadecimalDigits(text, "-{}", 32);
    return digits.empty() ? digits : grouped(digits, {8, 4, 4, 4, 12}, '-');
}

/// What is left of a serial number; empty for what many devices say that have none.
std::string tellingSerialNumber(std::string_view text)
{
    const auto serial = trimmed(text);
    const auto low = lowered(serial);
    constexpr std::array<std::string_view, 7> kPlaceholders{"unknown", "none",   "n/a",          "null",
                                                            "default", "serial", "not available"};
    const bool isOneLetter = serial.empty() || serial.find_first_not_of(serial[0]) == std::string::npos;
    if (isOneLetter || serial.size() < 2 ||
        std::find(kPlaceholders.begin(), kPlaceholders.end(), low) != kPlaceholders.end())
        return {};
    const bool hasControls =
        std::any_of(serial.begin(), serial.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    return hasControls ? std::string() : serial;
}

/// Back ends write the vendor in front of the model, or do not.
std::string withoutVendor(const std::string& model, const std::string& vendor)
{
    const bool hasVendor = !vendor.empty() && model.size() > vendor.size() + 1 && model[vendor.size()] == ' ' &&
                           lowered(model.substr(0, vendor.size())) == lowered(vendor);
    return hasVendor ? trimmed(std::string_view(model).substr(vendor.size())) : model;
}

void note(DeviceWay& way, DeviceEvidence::Kind kind, std::string text)
{
    if (!text.empty())
        way.evidence.push_back({kind, std::move(text)});
}

/// A service's own words for vendor and model may ask the device, which takes seconds; what it was made from never
/// does.
Dictionary propertiesOf(ADMServiceInfo& service)
{
    if (const auto* const own = dynamic_cast<ADMServiceInfoImp*>(&service))
        return own->properties();
    const auto data = service.dataRepresentation();
    return data ? unarchived(data->bytes()).value_or(Dictionary()) : Dictionary();
}

} // namespace

DeviceFacts factsOf(const std::shared_ptr<ADMServiceInfo>& service)
{
    DeviceFacts facts;
    facts.way.service = service;
    const auto properties = propertiesOf(*service);
    const auto property = [&](std::string_view key) { return properties.string(key).value_or(""); };
    facts.way.uri = property(kURIProp);
    if (facts.way.uri.empty())
        facts.way.uri = service->uri().value_or("");
    facts.way.connectionType = property(kConnectionTypeProp);
    facts.way.serviceName = property(kServiceNameProp);
    facts.vendor = trimmed(property(kVendorNameProp));
    facts.model = withoutVendor(trimmed(property(kModelNameProp)), facts.vendor);

    static const Dictionary none;
    const auto* const params = properties[kParamsProp].asDictionary();
    const Dictionary& parameters = params ? *params : none;
    if (!parameters.contains(kSerialNumberKindParam))
        facts.serialNumber = tellingSerialNumber(parameters.string(kSerialNumberParam).value_or(""));
    if (!facts.serialNumber.empty() && !facts.vendor.empty() && !facts.model.empty())
        note(facts.way, DeviceEvidence::Kind::serialNumber,
             lowered(facts.vendor) + '/' + lowered(facts.model) + '/' + facts.serialNumber);
    note(facts.way, DeviceEvidence::Kind::macAddress,
         normalMacAddress(parameters.string(kMACAddressParam).value_or("")));
    note(facts.way, DeviceEvidence::Kind::uuid, normalUuid(parameters.string(kDeviceUUIDParam).value_or("")));
    std::sort(facts.way.evidence.begin(), facts.way.evidence.end());
    return facts;
}

} // namespace dmf::internal
