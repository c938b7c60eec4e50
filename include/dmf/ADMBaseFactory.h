#pragma once

#include <memory>

#include <dmf/ADMInterface.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

class ADMServiceInfo;

/// Base of the library's factories: makes functional services for services under a mock scheme. Keeps no state;
/// thread-safe.
class DMF_EXPORT ADMBaseFactory {
public:
    virtual ~ADMBaseFactory();

    /// A new functional service of the class that the mock plug-in for the service's URI scheme names for the
    /// interface; empty without a service info, for a service with a standard URI, and when no such class is there. May
    /// load plug-ins; the service is not asked for its device.
    [[nodiscard]] std::shared_ptr<ADMInterface>
    implementerWithInterface(const dmf::Protocol& interface, const std::shared_ptr<ADMServiceInfo>& serviceInfo) const;
};
