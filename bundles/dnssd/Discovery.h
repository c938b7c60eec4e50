#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMDiscoveryProvider.h>
#include <dmf/ADMServiceDiscoveryBase.h>

#include "Browse.h"

namespace dmf::dnssd {

/// The service types by which a channel's services are announced ("_ipp._tcp"); none for a channel that is not known.
[[nodiscard]] const std::vector<std::string>& typesOfChannel(std::string_view channelName);

/// Finds the services of one channel by DNS-SD, through the machine's Avahi daemon. A start never waits, and a missing
/// daemon is no failed start: `lastError` tells of it (Browse::TroubleCode). Finds are service infos with URI, name,
/// type and domain, and vendor, model and serial number as far as the service tells them.
class Discovery final : public ADMServiceDiscoveryBase {
public:
    [[nodiscard]] static std::shared_ptr<IDMServiceDiscovery>
    initWithServiceName(std::string serviceName, std::string connectionType, Dictionary parameters);
    Discovery(std::string serviceName, std::string connectionType, Dictionary parameters);

    [[nodiscard]] Dictionary lastError() const override;
};

/// Runs one Browse from a start to the next stop.
class Provider final : public ADMDiscoveryProvider {
public:
    /// Statuses of a start.
    enum StartStatus : Status { unknownChannel = 2, noThread = 3 };

    explicit Provider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent) : ADMDiscoveryProvider(parent) {}
    ~Provider() override;

    /// Anew when it runs already: everything is then reported again.
    [[nodiscard]] Status startDiscovery(std::string_view serviceName, std::optional<std::string_view> scope) override;
    Status stopDiscovery() override;
    [[nodiscard]] Dictionary trouble() const;

private:
    void replaceBrowse(std::shared_ptr<Browse> browse);

    mutable std::mutex lock_;
    std::shared_ptr<Browse> browse_; // guarded by lock_
};

} // namespace dmf::dnssd
