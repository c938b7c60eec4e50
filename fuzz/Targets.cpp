#include "Targets.h"

#include <dmf/ADMInfo.h>
#include <dmf/ADMPlistModelInfoHandler.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/ADMXMLModelInfoHandler.h>
#include <dmf/DMDataStorePath.h>
#include <dmf/DMDeviceID.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Bundle.h>
#include <dmf/platform/PropertyList.h>
#include <dmf/platform/Url.h>
#include <dmf/platform/Xml.h>
#include <dmf/platform/XmlReader.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <stdlib.h>

#include "ServiceName.h"
#include "TxtRecord.h"
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
    // What is written is compared, since a real that is no number equals nothing.
    const auto again = PropertyList::parse(written->bytes());
    const auto twice = again ? PropertyList::serialize(*again) : std::nullopt;
    require(twice && twice->text() == written->text());
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
    if (!written)
        return;
    const auto again = internal::unarchived(written->bytes());
    const auto twice = again ? internal::archived(*again) : std::nullopt;
    require(twice && twice->text() == written->text());
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

/// What is written of a service that came from elsewhere can be read by the one who gets it, whatever it says.
void serviceUri(Bytes bytes)
{
    const auto service = ADMServiceInfoImp::serviceInfoWithURI(textOf(bytes), kPrinterDeviceClass);
    const auto written = service ? service->universalURIWithScheme("app") : std::nullopt;
    if (!written)
        return;
    if (const auto again = ADMServiceInfoImp::serviceInfoWithURI(*written, kPrinterDeviceClass))
        (void)again->universalURIWithScheme("app");
}

/// What a device plug-in answers may be anything that a dictionary can hold.
class Answering final : public IDMDevice {
public:
    explicit Answering(Dictionary answer) : answer_(std::move(answer)) {}
    bool isReachable() override { return true; }
    Dictionary retrieveParameters(const Dictionary&, std::shared_ptr<IDMDeviceHandler>) override { return answer_; }

private:
    const Dictionary answer_;
};

void plugInAnswer(Bytes bytes)
{
    const auto answer = PropertyList::parse(bytes);
    const auto* const said = answer ? answer->asDictionary() : nullptr;
    if (!said)
        return;
    const auto service = ADMServiceInfoImp::serviceInfoWithURI("socket://192.0.2.1:9100", kPrinterDeviceClass);
    service->setDevice(std::make_shared<Answering>(*said));
    (void)service->vendorName();
    (void)service->modelName();
    (void)service->deviceName();
    (void)service->universalURIWithScheme("app");
    (void)service->dataRepresentation();
}

/// A bundle's description as it lies in a folder; its code is never asked for.
void bundle(Bytes bytes)
{
    // Never destroyed: the last thing that the program does is to remove it.
    static const std::string& folder = *new std::string([] {
        std::string made = (std::filesystem::temp_directory_path() / "dmf-fuzz-XXXXXX").string();
        require(::mkdtemp(made.data()) != nullptr);
        made += "/Fuzzed.bundle";
        std::filesystem::create_directory(made);
        std::atexit([] { std::filesystem::remove_all(std::filesystem::path(folder).parent_path()); });
        return made;
    }());
    std::ofstream(folder + "/Info.plist", std::ios::binary) << textOf(bytes);
    if (const auto read = Bundle::bundleAtPath(folder))
        (void)read->infoDictionary();
}

/// A model file's contents, deciphered, in either form.
template <class Handler>
void modelFile(Bytes bytes)
{
    const auto handler = Handler::initWithData(Data(bytes), "Fuzzed");
    const auto info = handler ? handler->info() : nullptr;
    if (!info)
        return;
    (void)info->properties();
    (void)info->infoForPath("Information/ModelId");
    require(info->allInfos().size() == info->count());
}

/// The first line is a service's name as DNS has it, the others are entries of its TXT record.
void dnssd(Bytes bytes)
{
    std::vector<std::string> lines(1);
    for (const char c : textOf(bytes))
        c == '\n' ? lines.emplace_back() : lines.back() += c;
    const dmf::dnssd::ServiceName name{lines.front(), "_ipp._tcp", "local"};
    lines.erase(lines.begin());
    const auto identity = dmf::dnssd::TxtRecord(lines).identity();
    (void)identity;
    const auto uri = name.uri();
    if (!uri)
        return;
    // A name that has a URI is found by it again.
    ADMServiceURIParser parser(*uri);
    require(parser.parse());
    const auto* const parameters = parser.components()["params"].asDictionary();
    require(parameters && dmf::dnssd::ServiceName::fromParameters(*parameters) == name);
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
    {"plist", propertyList},
    {"xml", xml},
    {"archive", archive},
    {"serviceinfo", serviceInfo},
    {"uri", uri},
    {"deviceid", deviceID},
    {"encodings", encodings},
    {"serviceuri", serviceUri},
    {"answer", plugInAnswer},
    {"bundle", bundle},
    {"plistmodel", modelFile<ADMPlistModelInfoHandler>},
    {"xmlmodel", modelFile<ADMXMLModelInfoHandler>},
    {"dnssd", dnssd},
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
