#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/ADMDiscoveryProvider.h>
#include <dmf/ADMServiceDiscoveryBase.h>

#include "Run.h"

namespace dmf::usb {

/// Finds the devices on the USB that serve one channel. A start never waits, and a machine without a USB is no failed
/// start: `lastError` tells of it (WatchTrouble). Finds are service infos with URI, vendor, model and serial number;
/// their parameters tell the place, and whether the device may be used ("Access", with "AccessAdvice").
class Discovery final : public ADMServiceDiscoveryBase {
public:
    [[nodiscard]] static std::shared_ptr<IDMServiceDiscovery>
    initWithServiceName(std::string serviceName, std::string connectionType, Dictionary parameters);
    Discovery(std::string serviceName, std::string connectionType, Dictionary parameters);

    [[nodiscard]] Dictionary lastError() const override;
};

/// Does one Run from a start to the next stop.
class Provider final : public ADMDiscoveryProvider {
public:
    /// Statuses of a start.
    enum StartStatus : Status { noOwner = 2, noThread = 3 };

    explicit Provider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent) : ADMDiscoveryProvider(parent) {}
    ~Provider() override;

    /// Anew when it runs already: everything is then reported again.
    [[nodiscard]] Status startDiscovery(std::string_view serviceName, std::optional<std::string_view> scope) override;
    Status stopDiscovery() override;
    [[nodiscard]] Dictionary trouble() const;

private:
    void replaceRun(std::shared_ptr<Run> run);

    mutable std::mutex lock_;
    std::shared_ptr<Run> run_; // guarded by lock_
};

} // namespace dmf::usb
