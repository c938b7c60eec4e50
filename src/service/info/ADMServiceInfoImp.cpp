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
#include <dmf/IDMDevice.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Unicode.h>
#include <dmf/platform/Url.h>

#include <algorithm>
#include <array>
#include <utility>

#include "plugins/GuardedMake.h"
#include "service/uris/UriForms.h"

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

Dictionary dictionaryIn(const Dictionary& container, std::string_view key)
{
    const auto* const value = container[key].asDictionary();
    return value ? *value : Dictionary();
}

} // namespace

ADMServiceInfoImp::ADMServiceInfoImp(Passkey) : stubPort_(dmf::RunLoopSource::create({})) {}

ADMServiceInfoImp::~ADMServiceInfoImp()
{
    ADMServiceInfoImp::stop();
    stubPort_->invalidate();
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithURI(std::optional<std::string_view> uri,
                                                                  std::optional<std::string_view> deviceClass,
                                                                  std::shared_ptr<ADMIOProvider> ioProvider)
{
    if (!uri || !deviceClass) {
        const auto shown = [](const auto& text) { return text ? std::optional(std::string(*text)) : std::nullopt; };
        DMFLog("debug",
               "ServiceInfo: cannot create a service info with unknown URI or device class (URI '%@', device class "
               "'%@')",
               shown(uri), shown(deviceClass));
        return nullptr;
    }
    const auto info = std::make_shared<ADMServiceInfoImp>(Passkey());
    info->container_.set(kURIProp, *uri);
    info->container_.set(kDeviceClassProp, *deviceClass);

    ADMServiceURIParser parser(*uri);
    const bool isReadable = parser.parse();
    if (isReadable)
        info->container_.merge(parser.components());
    if (!ioProvider && !parser.isStandardURI())
        ioProvider = mockProviderForURI(*uri);
    if (!ioProvider && !isReadable)
        return nullptr;
    info->ioProvider_ = std::move(ioProvider);
    return info;
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithSpec(const Dictionary& spec)
{
    const auto info = std::make_shared<ADMServiceInfoImp>(Passkey());
    info->container_.merge(spec);
    if (!info->container_.contains(kDeviceClassProp))
        info->container_.set(kDeviceClassProp, deviceClassForServiceName(spec.string(kServiceNameProp)));
    return info;
}

std::shared_ptr<ADMServiceInfoImp> ADMServiceInfoImp::initWithData(const std::optional<dmf::Data>& data)
{
    if (!data)
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

Dictionary ADMServiceInfoImp::container() const
{
    std::lock_guard guard(lock_);
    return container_;
}

std::optional<std::string> ADMServiceInfoImp::property(std::string_view key) const
{
    std::lock_guard guard(lock_);
    return container_.string(key);
}

std::optional<std::string> ADMServiceInfoImp::uri()
{
    if (auto kept = property(kURIProp))
        return kept;
    // Not under the lock: the generator may ask the model database and, through it, the device.
    const auto generated =
        generatedURI([this] { return ADMServiceURIGenerator().generateURIForServiceInfo(shared_from_this()); });
    std::lock_guard guard(lock_);
    if (!container_[kURIProp].asString())
        container_.set(kURIProp, generated);
    return container_.string(kURIProp);
}

std::optional<std::string> ADMServiceInfoImp::universalURIWithScheme(std::optional<std::string_view> scheme)
{
    if (!scheme)
        return std::nullopt;
    {
        std::lock_guard guard(lock_);
        const auto kept = container_.string(kURIProp);
        ADMServiceURIParser parser(kept.value_or(std::string()));
        if (!container_.contains(kParamsProp) && parser.parse())
            container_.merge(parser.components());
    }
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
    return property(kConnectionTypeProp);
}

Dictionary ADMServiceInfoImp::connectionParams() const
{
    return dictionaryIn(container(), kParamsProp);
}

std::optional<std::string> ADMServiceInfoImp::deviceClass() const
{
    return property(kDeviceClassProp);
}

std::optional<std::string> ADMServiceInfoImp::serviceName() const
{
    return property(kServiceNameProp);
}

std::optional<std::string> ADMServiceInfoImp::vendorName()
{
    if (auto kept = property(kVendorNameProp))
        return kept;
    const auto model = modelInfo();
    return model ? model->vendorName() : std::nullopt;
}

std::optional<std::string> ADMServiceInfoImp::modelName()
{
    if (auto kept = property(kModelNameProp))
        return kept;
    const auto model = modelInfo();
    return model ? std::optional(model->modelName()) : std::nullopt;
}

std::optional<std::string> ADMServiceInfoImp::deviceName()
{
    auto kept = property(kDeviceNameProp);
    return kept ? kept : modelName();
}

std::shared_ptr<ADMCoreModelInfo> ADMServiceInfoImp::modelInfo()
{
    {
        std::lock_guard guard(lock_);
        if (modelInfo_)
            return modelInfo_;
    }
    // Not under the lock: the device takes its time, and asks this object back.
    if (!property(kModelNameProp)) {
        if (const auto asked = device())
            setResolvedSpec(retrievedParameters(*asked));
    }
    const auto name = property(kModelNameProp);
    if (!name)
        return nullptr;
    const auto found = ADMModelInfoManager::sharedManager()->modelInfoWithModelName(*name);
    std::lock_guard guard(lock_);
    if (!modelInfo_ && container_.string(kModelNameProp) == name)
        modelInfo_ = found;
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
    std::lock_guard guard(lock_);
    return state_;
}

void ADMServiceInfoImp::setServiceState(std::uint32_t state)
{
    std::lock_guard guard(lock_);
    state_ = state & 7;
}

bool ADMServiceInfoImp::setProperty(std::string_view key, std::optional<std::string> value)
{
    std::lock_guard guard(lock_);
    if (!value || container_.string(key) == value)
        return false;
    container_.set(key, std::move(value));
    return true;
}

void ADMServiceInfoImp::setVendorName(std::optional<std::string> name)
{
    setProperty(kVendorNameProp, std::move(name));
}

void ADMServiceInfoImp::setModelName(std::optional<std::string> name)
{
    std::lock_guard guard(lock_);
    if (setProperty(kModelNameProp, std::move(name)))
        modelInfo_ = nullptr;
}

void ADMServiceInfoImp::setDeviceName(std::optional<std::string> name)
{
    setProperty(kDeviceNameProp, std::move(name));
}

void ADMServiceInfoImp::setConnectionParams(const Dictionary& parameters)
{
    std::lock_guard guard(lock_);
    auto merged = dictionaryIn(container_, kParamsProp);
    merged.merge(parameters);
    container_.set(kParamsProp, std::move(merged));
}

void ADMServiceInfoImp::setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo)
{
    std::lock_guard guard(lock_);
    std::swap(modelInfo_, modelInfo);
}

void ADMServiceInfoImp::setProperties(const Dictionary& spec)
{
    setModelName(spec.string(kModelNameProp));
    setVendorName(spec.string(kVendorNameProp));
    if (const auto* const params = spec[kParamsProp].asDictionary())
        setConnectionParams(*params);
    setDeviceName(spec.string(kDeviceNameProp));
}

void ADMServiceInfoImp::setResolvedSpec(const Dictionary& spec)
{
    std::lock_guard guard(lock_);
    if (!namesAcceptedVendor(spec)) {
        setServiceState(2);
        return;
    }
    setServiceState(1);
    setProperties(spec);
}

bool ADMServiceInfoImp::namesAcceptedVendor(const Dictionary& spec)
{
    const auto* const vendor = spec[kVendorNameProp].asString();
    return vendor && isAcceptedVendor(*vendor);
}
