#include "service/info/ServiceProperties.h"

#include <dmf/ADMModelInfo.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include <utility>

#include "foundation/keys/Vendors.h"
#include "platform/documents/Archive.h"

namespace dmf::internal {

Dictionary ServiceProperties::all() const
{
    std::lock_guard guard(lock_);
    return container_;
}

std::optional<std::string> ServiceProperties::text(std::string_view key) const
{
    std::lock_guard guard(lock_);
    return container_.string(key);
}

Dictionary ServiceProperties::parameters() const
{
    std::lock_guard guard(lock_);
    const auto* const kept = container_[kParamsProp].asDictionary();
    return kept ? *kept : Dictionary();
}

void ServiceProperties::merge(const Dictionary& properties)
{
    std::lock_guard guard(lock_);
    container_.merge(properties);
}

void ServiceProperties::mergeComponents(Dictionary components)
{
    // A universal URI may name its pairs as it likes; who the service is, says the caller.
    components.remove(kURIProp);
    components.remove(kDeviceClassProp);
    merge(components);
}

void ServiceProperties::readParametersFromURI()
{
    std::lock_guard guard(lock_);
    if (container_.contains(kParamsProp))
        return;
    ADMServiceURIParser parser(container_.string(kURIProp).value_or(std::string()));
    if (parser.parse())
        mergeComponents(parser.components());
}

std::optional<std::string> ServiceProperties::keepFirst(std::string_view key, std::optional<std::string> text)
{
    std::lock_guard guard(lock_);
    if (!container_[key].asString())
        container_.set(key, std::move(text));
    return container_.string(key);
}

bool ServiceProperties::setText(std::string_view key, std::optional<std::string> text)
{
    std::lock_guard guard(lock_);
    if (!text || container_.string(key) == text)
        return false;
    container_.set(key, std::move(text));
    return true;
}

void ServiceProperties::setVendorName(std::optional<std::string> name)
{
    setText(kVendorNameProp, std::move(name));
}

void ServiceProperties::setModelName(std::optional<std::string> name)
{
    std::lock_guard guard(lock_);
    if (setText(kModelNameProp, std::move(name)))
        modelInfo_ = nullptr;
}

void ServiceProperties::setDeviceName(std::optional<std::string> name)
{
    setText(kDeviceNameProp, std::move(name));
}

void ServiceProperties::setParameters(const Dictionary& parameters)
{
    std::lock_guard guard(lock_);
    auto merged = this->parameters();
    merged.merge(parameters);
    container_.set(kParamsProp, std::move(merged));
}

std::uint32_t ServiceProperties::state() const
{
    std::lock_guard guard(lock_);
    return state_;
}

void ServiceProperties::setState(std::uint32_t state)
{
    std::lock_guard guard(lock_);
    state_ = state & 7;
}

void ServiceProperties::setSpec(const Dictionary& spec)
{
    setModelName(spec.string(kModelNameProp));
    setVendorName(spec.string(kVendorNameProp));
    if (const auto* const parameters = spec[kParamsProp].asDictionary())
        setParameters(*parameters);
    setDeviceName(spec.string(kDeviceNameProp));
}

void ServiceProperties::setResolved(const Dictionary& spec)
{
    std::lock_guard guard(lock_);
    if (!namesAcceptedVendor(spec)) {
        setState(2);
        return;
    }
    setState(1);
    setSpec(spec);
}

bool ServiceProperties::namesAcceptedVendor(const Dictionary& spec)
{
    const auto* const vendor = spec[kVendorNameProp].asString();
    return vendor && isAcceptedVendor(*vendor);
}

std::shared_ptr<ADMCoreModelInfo> ServiceProperties::modelInfo() const
{
    std::lock_guard guard(lock_);
    return modelInfo_;
}

void ServiceProperties::setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo)
{
    std::lock_guard guard(lock_);
    std::swap(modelInfo_, modelInfo); // what it was goes with the argument, after the lock
}

void ServiceProperties::keepModelInfo(const std::shared_ptr<ADMCoreModelInfo>& modelInfo, std::string_view modelName)
{
    std::lock_guard guard(lock_);
    if (!modelInfo_ && container_.string(kModelNameProp) == modelName)
        modelInfo_ = modelInfo;
}

std::optional<Data> ServiceProperties::archive() const
{
    return archived(all());
}

void ServiceProperties::readArchive(const Data& data)
{
    auto read = unarchived(data.bytes());
    if (!read)
        return;
    ADMServiceURIParser parser(read->string(kURIProp).value_or(std::string()));
    const bool isReadable = parser.parse();

    std::lock_guard guard(lock_);
    container_ = *std::move(read);
    modelInfo_ = nullptr;
    if (isReadable)
        setSpec(parser.components());
}

} // namespace dmf::internal
