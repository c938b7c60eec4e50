#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>

class ADMInfo;
class ADMProtocolInfo;

/// One service by which a functional interface is reached: what implements it and which protocols it speaks.
/// Thread-safe.
class DMF_EXPORT ADMCommunicationInfo {
public:
    /// Over a "Service" node; empty without one.
    [[nodiscard]] static std::shared_ptr<ADMCommunicationInfo> initWithInfo(std::shared_ptr<ADMInfo> info);

    [[nodiscard]] std::optional<std::string> implementorClassName() const;
    [[nodiscard]] std::shared_ptr<ADMInfo> specificInfo() const;
    /// The protocol of that name; the same object every time.
    [[nodiscard]] std::shared_ptr<ADMProtocolInfo> protocolInfoNamed(std::string_view name);

private:
    explicit ADMCommunicationInfo(std::shared_ptr<ADMInfo> info);
    const std::shared_ptr<ADMInfo> info_;
    std::mutex lock_;
    std::map<std::string, std::shared_ptr<ADMProtocolInfo>, std::less<>> protocols_; // by name; guarded by lock_
};
