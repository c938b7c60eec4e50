#include <dmf/ADMServiceInfoImp.h>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfo.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceURIGenerator.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/DMStringExtension.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Unicode.h>
#include <dmf/platform/Url.h>

#include <algorithm>
#include <array>
#include <typeinfo>
#include <utility>

#include "foundation/logging/AfterFork.h"
#include "plugins/GuardedMake.h"
#include "service/info/ServiceDevice.h"
#include "service/info/ServiceProperties.h"
#include "service/info/ServiceResolution.h"
#include "service/resolution/ResolveParameters.h"

using dmf::Dictionary;
using namespace dmf::internal;

namespace {

/// The I/O provider of the mock plug-in for the URI's scheme; empty when there is none.
std::shared_ptr<ADMIOProvider> mockProviderForURI(std::string_view uri)
{
    const auto url = dmf::Url::fromString(uri);
    if (!url)
        return nullptr;
    const Dictionary matching{{std::string(kDMMockScheme), dmf::lowercased(url->scheme())}};
    const auto found = ADMPlugInManager::sharedManager()->implementorForProtocol(ADMIOProvider::protocol(), matching);
    return guardedMake<ADMIOProvider>(found);
}

/// A URI that a generator writes; nothing for the connection types that none writes.
template <class Generate>
std::optional<std::string> generatedURI(Generate generate)
{
    try {
        return generate();
    } catch (const dmf::UnrecognizedOperation&) {
        return std::nullopt;
    }
}

bool shareAnElement(const dmf::Array& left, const dmf::Array& right)
{
    return std::any_of(left.begin(), left.end(), [&](const dmf::Value& value) { return right.contains(value); });
}

} // namespace

ADMServiceInfoImp::ADMServiceInfoImp(Passkey)
    : properties_(std::make_shared<ServiceProperties>()), device_(std::make_shared<ServiceDevice>()),
      resolution_(std::make_shared<ServiceResolution>(properties_, device_))
{
}

ADMServiceInfoImp::ADMServiceInfoImp(Passkey, const ADMServiceInfoImp& original)
    : properties_(original.properties_), device_(original.device_),
      resolution_(std::make_shared<ServiceResolution>(properties_, device_))
{
}

ADMServiceInfoImp::~ADMServiceInfoImp()
{
    resolution_->stop();
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithURI(std::optional<std::string_view> uri,
                                                                  std::optional<std::string_view> deviceClass,
                                                                  std::shared_ptr<ADMIOProvider> ioProvider)
{
    if (dmf::internal::isRefusedAfterFork())
        return nullptr;
    if (!uri || !deviceClass) {
        const auto shown = [](const auto& text) { return text ? std::optional(std::string(*text)) : std::nullopt; };
        DMFLog("debug",
               "ServiceInfo: cannot create a service info with unknown URI or device class (URI '%@', device class "
               "'%@')",
               shown(uri), shown(deviceClass));
        return nullptr;
    }
    ADMServiceURIParser parser(*uri);
    const bool isReadable = parser.parse();
    if (!ioProvider && !parser.isStandardURI())
        ioProvider = mockProviderForURI(*uri);
    if (!ioProvider && !isReadable)
        return nullptr;

    const auto info = std::make_shared<ADMServiceInfoImp>(Passkey());
    info->properties_->merge({{std::string(kURIProp), *uri}, {std::string(kDeviceClassProp), *deviceClass}});
    if (isReadable)
        info->properties_->mergeComponents(parser.components());
    info->device_->setProvider(std::move(ioProvider));
    return info;
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithSpec(const Dictionary& spec)
{
    if (dmf::internal::isRefusedAfterFork())
        return nullptr;
    const auto info = std::make_shared<ADMServiceInfoImp>(Passkey());
    info->properties_->merge(spec);
    if (!spec.contains(kDeviceClassProp))
        info->properties_->keepFirst(kDeviceClassProp,
                                     std::string(deviceClassForServiceName(spec.string(kServiceNameProp))));
    return info;
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithData(const std::optional<dmf::Data>& data)
{
    if (!data || dmf::internal::isRefusedAfterFork())
        return nullptr;
    const auto info = std::make_shared<ADMServiceInfoImp>(Passkey());
    info->deserializeFromData(*data);
    return info;
}

std::string_view ADMServiceInfoImp::deviceClassForServiceName(std::optional<std::string_view> serviceName)
{
    struct Row {
        std::string_view serviceName;
        const std::string_view* deviceClass;
    };
    static constexpr std::array kRows{Row{"Scan", &kScannerDeviceClass}, Row{"QL-Pellomar", &kScannerDeviceClass}};
    const auto row =
        std::find_if(kRows.begin(), kRows.end(), [&](const Row& each) { return each.serviceName == serviceName; });
    return row != kRows.end() ? *row->deviceClass : kPrinterDeviceClass;
}

// What is known of the service.

std::optional<std::string> ADMServiceInfoImp::uri()
{
    if (auto kept = properties_->text(kURIProp))
        return kept;
    return properties_->keepFirst(kURIProp, generatedURI([this] {
                                      return ADMServiceURIGenerator().generateURIForServiceInfo(shared_from_this());
                                  }));
}

std::optional<std::string> ADMServiceInfoImp::universalURIWithScheme(std::optional<std::string_view> scheme)
{
    if (!scheme)
        return std::nullopt;
    properties_->readParametersFromURI();
    return generatedURI(
        [&] { return ADMServiceURIGenerator().generateUniversalURIForServiceInfo(shared_from_this(), *scheme); });
}

bool ADMServiceInfoImp::hasStandardURI()
{
    ADMServiceURIParser parser(uri().value_or(std::string()));
    return parser.parse() && parser.isStandardURI();
}

std::optional<std::string> ADMServiceInfoImp::connectionType() const
{
    return properties_->text(kConnectionTypeProp);
}

Dictionary ADMServiceInfoImp::connectionParams() const
{
    return properties_->parameters();
}

std::optional<std::string> ADMServiceInfoImp::deviceClass() const
{
    return properties_->text(kDeviceClassProp);
}

std::optional<std::string> ADMServiceInfoImp::serviceName() const
{
    return properties_->text(kServiceNameProp);
}

std::optional<std::string> ADMServiceInfoImp::vendorName()
{
    if (auto kept = properties_->text(kVendorNameProp))
        return kept;
    const auto model = modelInfo();
    return model ? model->vendorName() : std::nullopt;
}

std::optional<std::string> ADMServiceInfoImp::modelName()
{
    if (auto kept = properties_->text(kModelNameProp))
        return kept;
    const auto model = modelInfo();
    return model ? std::optional(model->modelName()) : std::nullopt;
}

std::optional<std::string> ADMServiceInfoImp::deviceName()
{
    auto kept = properties_->text(kDeviceNameProp);
    return kept ? kept : modelName();
}

std::shared_ptr<ADMCoreModelInfo> ADMServiceInfoImp::modelInfo()
{
    if (auto kept = properties_->modelInfo())
        return kept;
    if (!properties_->text(kModelNameProp)) {
        if (const auto asked = device())
            setResolvedSpec(ServiceDevice::parametersOf(*asked));
    }
    const auto name = properties_->text(kModelNameProp);
    if (!name)
        return nullptr;
    const auto found = ADMModelInfoManager::sharedManager()->modelInfoWithModelName(*name);
    properties_->keepModelInfo(found, *name);
    return found;
}

std::vector<std::string> ADMServiceInfoImp::supportedDeviceClasses()
{
    const auto model = modelInfo();
    const auto found =
        model ? model->infoForPath(kDMFFeaturesKey, kDMFTableName) : std::vector<std::shared_ptr<ADMInfo>>();
    std::vector<std::string> classes;
    if (found.empty())
        return classes;
    for (const auto& entry : found.front()->allInfos()) {
        if (auto name = entry->name())
            classes.push_back(*std::move(name));
    }
    return classes;
}

std::uint32_t ADMServiceInfoImp::serviceState() const
{
    return properties_->state();
}

void ADMServiceInfoImp::setServiceState(std::uint32_t state)
{
    properties_->setState(state);
}

void ADMServiceInfoImp::setVendorName(std::optional<std::string> name)
{
    properties_->setVendorName(std::move(name));
}

void ADMServiceInfoImp::setModelName(std::optional<std::string> name)
{
    properties_->setModelName(std::move(name));
}

void ADMServiceInfoImp::setDeviceName(std::optional<std::string> name)
{
    properties_->setDeviceName(std::move(name));
}

void ADMServiceInfoImp::setConnectionParams(const Dictionary& parameters)
{
    properties_->setParameters(parameters);
}

void ADMServiceInfoImp::setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo)
{
    properties_->setModelInfo(std::move(modelInfo));
}

void ADMServiceInfoImp::setResolvedSpec(const Dictionary& spec)
{
    properties_->setResolved(spec);
}

// As bytes, and beside another one.

dmf::Dictionary ADMServiceInfoImp::properties() const
{
    return properties_->all();
}

void ADMServiceInfoImp::serializeToData(dmf::Data& data) const
{
    if (const auto archive = properties_->archive())
        data.append(*archive);
}

std::optional<dmf::Data> ADMServiceInfoImp::dataRepresentation() const
{
    dmf::Data data;
    serializeToData(data);
    return data.empty() ? std::nullopt : std::optional(std::move(data));
}

void ADMServiceInfoImp::deserializeFromData(const dmf::Data& data)
{
    properties_->readArchive(data);
}

std::shared_ptr<ADMServiceInfo> ADMServiceInfoImp::copy() const
{
    return initWithData(dataRepresentation());
}

bool ADMServiceInfoImp::isEqual(ADMServiceInfo& other)
{
    const ADMServiceInfo& self = *this;
    return typeid(self) == typeid(other) && isEqualToServiceInfo(other);
}

bool ADMServiceInfoImp::isEqualToServiceInfo(ADMServiceInfo& other)
{
    if (this == &other)
        return true;
    const auto mine = uri();
    const auto theirs = other.uri();
    return mine.has_value() == theirs.has_value() && (!mine || dmf::lowercased(*mine) == dmf::lowercased(*theirs)) &&
           serviceName() == other.serviceName();
}

bool ADMServiceInfoImp::isEqualToDeviceInfo(ADMDeviceInfo& other)
{
    if (modelName() != other.modelName() || connectionType() != other.connectionType())
        return false;
    const auto mine = connectionParams();
    const auto theirs = other.connectionParams();
    const auto agree = [&](std::string_view key) {
        return !mine.contains(key) || !theirs.contains(key) || mine[key] == theirs[key];
    };
    const auto* const myAddresses = mine[kAllIPAddressesParam].asArray();
    const auto* const theirAddresses = theirs[kAllIPAddressesParam].asArray();
    return agree(kSerialNumberParam) &&
           (!myAddresses || !theirAddresses || shareAnElement(*myAddresses, *theirAddresses)) &&
           agree(kMACAddressParam);
}

std::uint32_t ADMServiceInfoImp::hash()
{
    return com_ql_dmf_MD5Hash(uri().value_or(std::string()) + deviceClass().value_or(std::string()));
}

// Its device.

std::shared_ptr<ADMIOProvider> ADMServiceInfoImp::ioProvider() const
{
    return device_->provider();
}

std::shared_ptr<IDMDevice> ADMServiceInfoImp::device()
{
    if (auto kept = device_->kept())
        return kept;
    return device_->device(properties_->all());
}

void ADMServiceInfoImp::setDevice(std::shared_ptr<IDMDevice> device)
{
    device_->exchange(std::move(device));
}

std::shared_ptr<IDMDevice> ADMServiceInfoImp::locateDeviceWithHandler(std::shared_ptr<IDMDeviceHandler> handler)
{
    return device_->locate(handler, properties_->all());
}

std::shared_ptr<IDMDevice>
ADMServiceInfoImp::locateDeviceWithHandlerDeviceSpec(const std::shared_ptr<IDMDeviceHandler>& handler,
                                                     const Dictionary& deviceSpec)
{
    return device_->locate(handler, deviceSpec);
}

bool ADMServiceInfoImp::isReachable()
{
    return device_->isReachable(properties_->all());
}

// Its resolution.

std::shared_ptr<ADMServiceInfoDelegate> ADMServiceInfoImp::delegate() const
{
    return resolution_->delegate();
}

void ADMServiceInfoImp::setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate)
{
    resolution_->setDelegate(delegate);
}

void ADMServiceInfoImp::scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode)
{
    resolution_->schedule(std::move(runLoop), mode);
}

void ADMServiceInfoImp::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode)
{
    resolution_->unschedule(runLoop, mode);
}

void ADMServiceInfoImp::resolveWithTimeout(double timeout)
{
    const auto& usual = connectionTypeToParametersMap()[connectionType().value_or(std::string())];
    const auto* const parameters = usual.asDictionary();
    resolveServiceWithParameters(parameters ? *parameters : Dictionary(), timeout);
}

void ADMServiceInfoImp::resolveServiceWithParameters(const Dictionary& parameters, double timeout)
{
    const auto keptAlive = shared_from_this(); // the delegate may let go of the last reference
    resolution_->start(keptAlive, std::make_shared<ADMServiceInfoImp>(Passkey(), *this), parameters, timeout);
}

void ADMServiceInfoImp::serviceResolverDidFinish(ADMServiceResolver& resolver)
{
    const auto keptAlive = shared_from_this();
    resolution_->resolverDidFinish(resolver);
}

void ADMServiceInfoImp::stop()
{
    resolution_->stop();
}
