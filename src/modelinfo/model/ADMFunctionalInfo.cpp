#include <dmf/ADMFunctionalInfo.h>

#include <dmf/ADMCommunicationInfo.h>
#include <dmf/ADMInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Unicode.h>

#include "modelinfo/files/Spared.h"
#include "modelinfo/model/InfoQueries.h"

using namespace dmf::internal;

std::shared_ptr<ADMFunctionalInfo> ADMFunctionalInfo::initWithInfo(std::shared_ptr<ADMInfo> info,
                                                                   std::string_view connectionType)
{
    if (!info)
        return nullptr;
    return std::shared_ptr<ADMFunctionalInfo>(new ADMFunctionalInfo(std::move(info), dmf::lowercased(connectionType)));
}

ADMFunctionalInfo::ADMFunctionalInfo(std::shared_ptr<ADMInfo> info, std::string connectionType)
    : connectionType_(std::move(connectionType)), info_(std::move(info))
{
}

std::shared_ptr<ADMInfo> ADMFunctionalInfo::specificInfo() const
{
    return child(info_, kDMSpecificInfoKey);
}

ADMFunctionalInfo::CommunicationInfos ADMFunctionalInfo::communicationInfoList()
{
    return spared("listing services", [&]() -> CommunicationInfos {
        std::lock_guard guard(lock_);
        return generalInfos();
    });
}

const ADMFunctionalInfo::CommunicationInfos& ADMFunctionalInfo::generalInfos()
{
    if (general_.empty())
        general_ =
            infosReferredToBy(child(child(info_, kDMConnectionListKey), kDMConnectionKey, kDMType, connectionType_));
    return general_;
}

std::shared_ptr<ADMCommunicationInfo> ADMFunctionalInfo::communicationInfoNamed(std::string_view name)
{
    return spared("looking for a service", [&]() -> std::shared_ptr<ADMCommunicationInfo> {
        std::lock_guard guard(lock_);
        return namedInfo(name);
    });
}

std::shared_ptr<ADMCommunicationInfo> ADMFunctionalInfo::namedInfo(std::string_view name)
{
    const auto known = services_.find(name);
    if (known != services_.end())
        return known->second;
    auto made =
        ADMCommunicationInfo::initWithInfo(child(child(info_, kDMServiceListKey), kDMServiceKey, kDMName, name));
    if (made)
        services_.emplace(name, made);
    return made;
}

ADMFunctionalInfo::CommunicationInfos
ADMFunctionalInfo::prefferedCommunicationInfosForProtocolName(std::string_view protocolName)
{
    return spared("listing services", [&]() -> CommunicationInfos {
        std::lock_guard guard(lock_);
        auto known = preferred_.find(protocolName);
        if (known == preferred_.end()) {
            const Info connection =
                child(child(info_, kDMProtocolSpecificConnectionList), kDMConnectionKey, kDMType, connectionType_);
            // A miss is kept as an empty list, so that it is not looked for again.
            known =
                preferred_
                    .emplace(protocolName, infosReferredToBy(child(connection, kDMProtocolKey, kDMName, protocolName)))
                    .first;
        }
        return known->second.empty() ? generalInfos() : known->second;
    });
}

ADMFunctionalInfo::CommunicationInfos
ADMFunctionalInfo::communicationInfoListForInterfacesList(const std::shared_ptr<ADMInfo>& list)
{
    return spared("listing services", [&]() -> CommunicationInfos {
        std::lock_guard guard(lock_);
        return infosReferredToBy(list);
    });
}

ADMFunctionalInfo::CommunicationInfos ADMFunctionalInfo::infosReferredToBy(const std::shared_ptr<ADMInfo>& list)
{
    CommunicationInfos infos;
    for (const Info& reference : children(list, kDMServiceKey)) {
        const auto name = property(reference, kDMName);
        if (auto info = name ? namedInfo(*name) : nullptr)
            infos.push_back(std::move(info));
    }
    return infos;
}
