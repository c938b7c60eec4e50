#include <dmf/ADMCommunicationInfo.h>

#include <dmf/ADMInfo.h>
#include <dmf/ADMProtocolInfo.h>
#include <dmf/DMKeys.h>

#include "modelinfo/files/Spared.h"
#include "modelinfo/model/InfoQueries.h"

using namespace dmf::internal;

std::shared_ptr<ADMCommunicationInfo> ADMCommunicationInfo::initWithInfo(std::shared_ptr<ADMInfo> info)
{
    if (!info)
        return nullptr;
    return std::shared_ptr<ADMCommunicationInfo>(new ADMCommunicationInfo(std::move(info)));
}

ADMCommunicationInfo::ADMCommunicationInfo(std::shared_ptr<ADMInfo> info) : info_(std::move(info)) {}

std::optional<std::string> ADMCommunicationInfo::implementorClassName() const
{
    return spared("looking for a class",
                  [&]() -> std::optional<std::string> { return text(child(info_, kDMClassNameKey)); });
}

std::shared_ptr<ADMInfo> ADMCommunicationInfo::specificInfo() const
{
    return child(info_, kDMSpecificInfoKey);
}

std::shared_ptr<ADMProtocolInfo> ADMCommunicationInfo::protocolInfoNamed(std::string_view name)
{
    return spared("looking for a protocol", [&]() -> std::shared_ptr<ADMProtocolInfo> {
        std::lock_guard guard(lock_);
        const auto known = protocols_.find(name);
        if (known != protocols_.end())
            return known->second;
        auto made = ADMProtocolInfo::initWithInfo(
            child(child(specificInfo(), kDMProtocolsListKey), kDMProtocolKey, kDMName, name));
        if (made)
            protocols_.emplace(name, made);
        return made;
    });
}
