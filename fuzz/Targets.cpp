#include "Targets.h"

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMDataStorePath.h>
#include <dmf/DMDeviceID.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/PropertyList.h>
#include <dmf/platform/Url.h>
#include <dmf/platform/Xml.h>
#include <dmf/platform/XmlReader.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/documents/Archive.h"
#ifdef DMF_FUZZ_USB
#include "device/Choice.h"
#include "device/DeviceId.h"
#endif

namespace dmf::fuzz {
namespace {

using Bytes = std::span<const std::uint8_t>;

std::string_view textOf(Bytes bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Ends the program where a promise is broken, so that every kind of run notices.
void require(bool isKept)
{
    if (!isKept)
        std::abort();
}

/// What was read can be written, and reads back as the same.
void propertyList(Bytes bytes)
{
    const auto value = PropertyList::parse(bytes);
    const auto written = value ? PropertyList::serialize(*value) : std::nullopt;
    if (!written)
        return;
    const auto again = PropertyList::parse(written->bytes());
    require(again && *again == *value);
}

/// Counts the elements of which the receiver hears the begin and the end.
struct Counter final : XmlReceiver {
    void beginElement(std::string_view name, std::span<const Attribute>) override
    {
        require(!name.empty());
        ++open;
    }
    void text(std::string_view text) override { require(open > 0 && !text.empty()); }
    void endElement() override { require(open-- > 0); }

    int open = 0;
};

void xml(Bytes bytes)
{
    for (const unsigned options : {kXmlTidy, kXmlPreserveWhitespace})
        (void)XmlDocument::parse(textOf(bytes), options);
    // Both ways to read take the same documents.
    Counter counter;
    const bool isRead = readXml(textOf(bytes), counter);
    require(isRead == (XmlDocument::parse(textOf(bytes)) != nullptr));
    require(!isRead || counter.open == 0);
}

void archive(Bytes bytes)
{
    const auto read = internal::unarchived(bytes);
    const auto written = read ? internal::archived(*read) : std::nullopt;
    if (written)
        require(internal::unarchived(written->bytes()) == read);
}

void serviceInfo(Bytes bytes)
{
    const auto service = ADMServiceInfoImp::serviceInfoWithData(Data(bytes));
    require(service != nullptr);
    (void)service->connectionType();
    (void)service->dataRepresentation();
}

void uri(Bytes bytes)
{
    const std::string text(textOf(bytes));
    ADMServiceURIParser parser(text);
    (void)parser.parse();
    (void)parser.isStandardURI();
    if (const auto url = Url::fromString(text))
        (void)url->query();
}

void deviceID(Bytes bytes)
{
    const std::string text(textOf(bytes));
    std::optional<std::string> model, manufacturer, description;
    (void)ParseDeviceStatusCFString(text, &model, &manufacturer, &description);
    (void)CheckBiDiChannelExists(text.c_str(), 5);
}

void encodings(Bytes bytes)
{
    const auto text = textOf(bytes);
    (void)com_ql_dmf_dataDecodedWithBase64(text);
    (void)com_ql_dmf_treatFileNameStringAsKey(text);
    (void)com_ql_dmf_isIPv6Adress(text);
    (void)com_ql_dmf_dataStoreKeyList(text);
}

#ifdef DMF_FUZZ_USB
/// What a device says of its build, and its answer for its ID.
void usbDevice(Bytes bytes)
{
    if (const auto descriptors = usb::Descriptors::read(bytes))
        for (const auto& configuration : descriptors->configurations) {
            (void)usb::chooseInterface(configuration, "Print", {});
            (void)usb::printerInterface(configuration);
        }
    if (const auto id = usb::deviceIdIn(bytes))
        (void)usb::namesIn(*id);
}
#endif

constexpr Target kTargets[] = {
    {"plist", propertyList},      {"xml", xml}, {"archive", archive},
    {"serviceinfo", serviceInfo}, {"uri", uri}, {"deviceid", deviceID},
    {"encodings", encodings},
#ifdef DMF_FUZZ_USB
    {"usb", usbDevice},
#endif
};
} // namespace

std::span<const Target> targets()
{
    return kTargets;
}

} // namespace dmf::fuzz
