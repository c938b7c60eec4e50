#pragma once

#include <functional>
#include <memory>
#include <string>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

class ADMServiceInfo;
class IDMServiceDiscovery;

/// Receives a back end's reports, on the discovery thread. Both have to be there. Owned by the client; the back end
/// holds it weakly.
struct IDMServiceDiscoveryDelegate {
    std::function<void(IDMServiceDiscovery& discovery, const std::shared_ptr<ADMServiceInfo>& service)>
        serviceDiscoveryDidFindService;
    std::function<void(IDMServiceDiscovery& discovery, const std::shared_ptr<ADMServiceInfo>& service)>
        serviceDiscoveryDidDisappearService;
};

/// A discovery back end for one service (channel) name over one connection type. Plug-ins implement it, usually by
/// deriving from ADMServiceDiscoveryBase, and state the connection type in their description under
/// kDMServiceConnectionType.
///
/// A found service is a service info with its URI; when it vanishes, a service info equal to it is reported.
/// Thread-safe.
class DMF_EXPORT IDMServiceDiscovery {
public:
    /// `initWithServiceName:connectionType:parameters:`; empty when the back end cannot look for such services.
    using Factory = std::shared_ptr<IDMServiceDiscovery>(std::string serviceName, std::string connectionType,
                                                         dmf::Dictionary parameters);
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMServiceDiscovery();

    [[nodiscard]] virtual std::shared_ptr<IDMServiceDiscoveryDelegate> delegate() const = 0;
    virtual void setDelegate(const std::shared_ptr<IDMServiceDiscoveryDelegate>& delegate) = 0;
    /// What found services are to be asked for when they are resolved, named by its keys.
    virtual void setParametersToResolve(dmf::Dictionary parameters) = 0;
    /// False when it cannot start; `error`, which may be null, then holds kDMErrorDescription and kDMErrorCode. Called
    /// on a thread that is neither the client's nor the discovery thread; should return within a second, since other
    /// back ends wait for their turn.
    [[nodiscard]] virtual bool startServiceDiscovery(dmf::Dictionary* error) = 0;
    /// No report reaches the delegate once this has returned, save one that is under way on the discovery thread.
    /// Called on any thread, at the same time for other back ends; should return within a second. What either of the
    /// two throws is logged, and the back end has failed.
    virtual void stop() = 0;

    /// What keeps a started back end from finding services just now (kDMErrorDescription, kDMErrorCode); empty while it
    /// works. A back end recovers by itself.
    [[nodiscard]] virtual dmf::Dictionary lastError() const { return {}; }
};
