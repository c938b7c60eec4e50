#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>

class ADMCommunicationInfo;
class ADMInfo;

/// One functional interface of a model over one connection type: the services that implement it, best first.
/// Thread-safe. The services that it hands out are kept and shared.
class DMF_EXPORT ADMFunctionalInfo {
public:
    using CommunicationInfos = std::vector<std::shared_ptr<ADMCommunicationInfo>>;

    /// Over a "FunctionalInterface" node, for a connection type of any letter case; empty without a node.
    [[nodiscard]] static std::shared_ptr<ADMFunctionalInfo> initWithInfo(std::shared_ptr<ADMInfo> info,
                                                                         std::string_view connectionType);

    [[nodiscard]] std::shared_ptr<ADMInfo> specificInfo() const;
    /// The services for the connection type, in the order of preference.
    [[nodiscard]] CommunicationInfos communicationInfoList();
    /// The service of that name, whatever connections it is meant for; the same object every time.
    [[nodiscard]] std::shared_ptr<ADMCommunicationInfo> communicationInfoNamed(std::string_view name);
    /// The services in the order that the protocol prefers; where the model says nothing special about the protocol,
    /// the general list.
    [[nodiscard]] CommunicationInfos prefferedCommunicationInfosForProtocolName(std::string_view protocolName);
    /// The services that a "Connection" or "Protocol" node refers to; names that the interface does not know are left
    /// out.
    [[nodiscard]] CommunicationInfos communicationInfoListForInterfacesList(const std::shared_ptr<ADMInfo>& list);

private:
    ADMFunctionalInfo(std::shared_ptr<ADMInfo> info, std::string connectionType);
    // The following are called with lock_ held.
    [[nodiscard]] CommunicationInfos infosReferredToBy(const std::shared_ptr<ADMInfo>& list);
    [[nodiscard]] std::shared_ptr<ADMCommunicationInfo> namedInfo(std::string_view name);
    [[nodiscard]] const CommunicationInfos& generalInfos();

    const std::string connectionType_; // in lower case
    const std::shared_ptr<ADMInfo> info_;
    std::mutex lock_;
    CommunicationInfos general_; // guarded by lock_; kept once it is not empty
    std::map<std::string, std::shared_ptr<ADMCommunicationInfo>, std::less<>> services_; // by name; guarded by lock_
    std::map<std::string, CommunicationInfos, std::less<>> preferred_; // by protocol, misses too; guarded by lock_
};
