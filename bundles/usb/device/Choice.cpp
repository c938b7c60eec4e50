#include "Choice.h"

#include <algorithm>

#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfo.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMTransportInfo.h>
#include <dmf/DMKeys.h>

namespace dmf::usb {

namespace {
constexpr std::uint8_t kPrinterClass = 7, kPrinterSubclass = 1;
constexpr int kUnidirectional = 1, kBidirectional = 2;
constexpr int kStorageClass = 8;

bool isMatch(const std::optional<int>& wanted, std::uint8_t present)
{
    return !wanted || *wanted == present;
}

const std::vector<TransportRow>& rowsOfAllModels()
{
    // A printer interface of protocol 3 and 4 speaks packets of other kinds, and is no channel of bytes.
    static const auto* const rows = new std::vector<TransportRow>{
        {std::string(kDMPrintChannelName), kPrinterClass, kPrinterSubclass, kBidirectional, {}, {}},
        {std::string(kDMPrintChannelName), kPrinterClass, kPrinterSubclass, kUnidirectional, {}, {}},
        {"Storage", kStorageClass, {}, {}, {}, {}},
    };
    return *rows;
}

const Interface* findInterface(const Configuration& configuration, const TransportRow& row,
                               const std::vector<TransportRow>& exclusions)
{
    for (const auto& interface : configuration.interfaces) {
        const bool isExcluded = std::any_of(exclusions.begin(), exclusions.end(), [&](const TransportRow& each) {
            return (each.channel.empty() || each.channel == row.channel) && each.matches(interface);
        });
        if (!isExcluded && row.matches(interface))
            return &interface;
    }
    return nullptr;
}

std::optional<int> given(int number, int absent)
{
    return number == absent ? std::nullopt : std::optional<int>(number);
}

bool isSet(const Dictionary& properties, std::string_view name)
{
    const auto value = properties.string(name);
    return value == "yes" || value == "true" || value == "1";
}

TransportRow rowIn(const std::shared_ptr<ADMInfo>& entry)
{
    TransportRow row;
    row.channel = ADMTransportInfo::channel(entry).value_or("");
    // No device class, subclass or protocol that a channel of bytes could use has the number 0.
    row.classCode = given(ADMTransportInfo::usbClass(entry), 0);
    row.subclass = given(ADMTransportInfo::usbSubclass(entry), 0);
    row.protocol = given(ADMTransportInfo::usbProtocol(entry), 0);
    row.alternate = given(ADMTransportInfo::usbAlternate(entry), -1);
    const auto properties = entry->properties().value_or(Dictionary());
    row.quirks = {isSet(properties, "unidirectional"), isSet(properties, "no-reattach"),
                  isSet(properties, "soft-reset"), isSet(properties, "delay-close")};
    // Interfaces that call themselves the vendor's own are only used when that is said.
    if (!row.classCode && isSet(properties, "vendor-class"))
        row.classCode = 0xFF;
    return row;
}

std::vector<TransportRow> rowsIn(const ADMTransportInfo& transport, std::string_view set)
{
    std::vector<TransportRow> rows;
    for (const auto& entry : transport.ioChannelInfos(set))
        if (entry)
            rows.push_back(rowIn(entry));
    return rows;
}
} // namespace

bool TransportRow::matches(const Interface& interface) const noexcept
{
    return isMatch(classCode, interface.classCode) && isMatch(subclass, interface.subclass) &&
           isMatch(protocol, interface.protocol) && isMatch(alternate, interface.alternate);
}

std::optional<Choice> chooseInterface(const Configuration& configuration, std::string_view channel,
                                      const TransportRows& rows)
{
    for (const auto* const table : {&rows.channels, &rowsOfAllModels()})
        for (const auto& row : *table) {
            if (row.channel != channel)
                continue;
            if (const auto* const found = findInterface(configuration, row, rows.exclusions))
                return Choice{*found, row.quirks};
        }
    return std::nullopt;
}

const Interface* printerInterface(const Configuration& configuration) noexcept
{
    const Interface* first = nullptr;
    for (const auto& interface : configuration.interfaces) {
        if (interface.classCode != kPrinterClass || interface.subclass != kPrinterSubclass)
            continue;
        if (interface.protocol == kUnidirectional || interface.protocol == kBidirectional)
            return &interface;
        if (!first)
            first = &interface;
    }
    return first;
}

TransportRows transportRowsOfModel(const std::string& modelName)
{
    const auto model = ADMModelInfoManager::sharedManager()->modelInfoWithModelName(modelName);
    const auto transport = model ? model->transportInfo() : nullptr;
    if (!transport)
        return {};
    return {rowsIn(*transport, kDMUSBChannelKey), rowsIn(*transport, kDMUSBExcludeChannelKey)};
}

} // namespace dmf::usb
