#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

class ADMServiceInfo;

/// What a functional service offers to its client: the service that it works on, whether it can be used, its parameters
/// and its last error. Thread-safe.
class DMF_EXPORT ADMInterface {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMInterface();

    /// What last went wrong, by the keys of DMKeys.h; empty when nothing did.
    [[nodiscard]] virtual dmf::Dictionary lastError() const = 0;
    /// Whether the service's device has been found.
    [[nodiscard]] virtual bool isAvailable() const = 0;
    [[nodiscard]] virtual dmf::Dictionary parameters() const = 0;
    virtual void setParameters(dmf::Dictionary parameters) = 0;
    [[nodiscard]] virtual std::shared_ptr<ADMServiceInfo> serviceInfo() const = 0;
};

/// How a functional service is made: a class states this interface to say that its objects can be made for a service.
class DMF_EXPORT ADMInterfaceInitialization {
public:
    /// `initWithServiceInfo`: a service for the device service, or empty.
    using Factory = std::shared_ptr<ADMInterface>(std::shared_ptr<ADMServiceInfo> serviceInfo);
    [[nodiscard]] static const dmf::Protocol& protocol();
};
