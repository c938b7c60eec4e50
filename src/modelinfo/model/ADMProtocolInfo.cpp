#include <dmf/ADMProtocolInfo.h>

#include <dmf/ADMInfo.h>
#include <dmf/DMKeys.h>

#include "modelinfo/model/InfoQueries.h"

using namespace dmf::internal;

std::shared_ptr<ADMProtocolInfo> ADMProtocolInfo::initWithInfo(std::shared_ptr<ADMInfo> info)
{
    if (!info)
        return nullptr;
    return std::shared_ptr<ADMProtocolInfo>(new ADMProtocolInfo(std::move(info)));
}

ADMProtocolInfo::ADMProtocolInfo(std::shared_ptr<ADMInfo> info) : info_(std::move(info)) {}

std::optional<std::string> ADMProtocolInfo::implementorClassName() const
{
    return text(child(info_, kDMProtocolImplementorKey));
}

ADMProtocolInfo::Texts ADMProtocolInfo::supportedFeatures() const
{
    Texts features;
    for (const Info& feature : children(child(info_, kDMFeaturesListKey), kDMFeatureKey)) {
        const auto name = property(feature, kDMName);
        const auto value = feature->count() == 0 ? text(feature) : std::string();
        if (name && value)
            features.insert_or_assign(*name, *value);
    }
    return features;
}

ADMProtocolInfo::Texts ADMProtocolInfo::supportedPropertiesForFeature(std::string_view feature) const
{
    Texts properties;
    const Info node = child(child(info_, kDMFeaturesListKey), kDMFeatureKey, kDMName, feature);
    for (const Info& each : children(node, kDMPropertyKey)) {
        const auto name = property(each, kDMName);
        const auto value = text(each);
        if (name && value)
            properties.insert_or_assign(*name, *value);
    }
    return properties;
}
