#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMCoreModelInfo;
class ADMIOProvider;
class ADMServiceInfo;
class IDMDevice;
class IDMDeviceHandler;

/// What a service says of its device. Thread-safe.
class DMF_EXPORT ADMDeviceInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMDeviceInfo();

    /// "USB", "IP", ... (the connection type keys of DMKeys.h), or nothing while it is unknown.
    [[nodiscard]] virtual std::optional<std::string> connectionType() const = 0;
    /// The connection parameters by the parameter keys of DMKeys.h; a copy.
    [[nodiscard]] virtual dmf::Dictionary connectionParams() const = 0;
    /// Vendor and model come from the URI or from resolution, failing that from the model database; the device name
    /// falls back to the model name. While the one that is asked for is unknown, each goes by `modelInfo` and may block
    /// as that does.
    [[nodiscard]] virtual std::optional<std::string> vendorName() = 0;
    [[nodiscard]] virtual std::optional<std::string> modelName() = 0;
    [[nodiscard]] virtual std::optional<std::string> deviceName() = 0;
    /// The model's entry in the database; empty while the model is unknown. While no model name is known, the device
    /// itself is asked for it, which can block for as long as the device's own time-outs.
    [[nodiscard]] virtual std::shared_ptr<ADMCoreModelInfo> modelInfo() = 0;
    /// Whether both stand for the same device, as far as model, connection type, serial number and addresses tell. May
    /// block as `modelName` of either does.
    [[nodiscard]] virtual bool isEqualToDeviceInfo(ADMDeviceInfo& other) = 0;
};

/// The operations by which the library's own parts and plug-ins work on a service. Thread-safe.
class DMF_EXPORT IDMCoreServiceInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMCoreServiceInfo();

    /// The device behind the service: the kept one, else one that is looked for now and kept; empty when it cannot be
    /// found. Blocks for as long as the transport looks for it; who asks while a search is under way shares its result.
    [[nodiscard]] virtual std::shared_ptr<IDMDevice> device() = 0;
    /// Keeps the device, which may be null. Never waits, a search under way included; what that one finds is then not
    /// kept.
    virtual void setDevice(std::shared_ptr<IDMDevice> device) = 0;
    /// Looks for the device without keeping it; ends early when `handler`, which may be null, cancels.
    [[nodiscard]] virtual std::shared_ptr<IDMDevice>
    locateDeviceWithHandler(std::shared_ptr<IDMDeviceHandler> handler) = 0;
    /// Whether the device answers now; looks for it when none is kept. Blocks up to the transport's time-outs.
    [[nodiscard]] virtual bool isReachable() = 0;
    /// What supplies the service's implementor classes in place of the plug-in manager; empty for ordinary services.
    [[nodiscard]] virtual std::shared_ptr<ADMIOProvider> ioProvider() const = 0;

    /// Each ignores a missing value. A new model name makes the model information be looked up anew.
    virtual void setVendorName(std::optional<std::string> name) = 0;
    virtual void setModelName(std::optional<std::string> name) = 0;
    virtual void setDeviceName(std::optional<std::string> name) = 0;
    /// Merges `parameters` into the connection parameters; new values win.
    virtual void setConnectionParams(const dmf::Dictionary& parameters) = 0;
    virtual void setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo) = 0;
    /// Keeps the low three bits: 0 not resolved, 1 resolved (or found), 2 failed (or removed).
    virtual void setServiceState(std::uint32_t state) = 0;
    /// Takes over what a device said of itself, if its vendor is accepted; otherwise the state becomes 2.
    virtual void setResolvedSpec(const dmf::Dictionary& spec) = 0;
};

/// Receives the events of a service's resolution, on the run loop in which the service is scheduled; that it begins,
/// and that it fails at once, on the thread that resolves it, before the call returns. Each may be empty. Owned by the
/// client; the library holds it weakly.
struct ADMServiceInfoDelegate {
    std::function<void(ADMServiceInfo& service)> serviceInfoWillResolve;
    std::function<void(ADMServiceInfo& service)> serviceInfoDidResolve;
    /// `error` is the resolver's error report (kDMErrorCode, kDMErrorDescription); empty when the device was reached
    /// but its vendor is not accepted.
    std::function<void(ADMServiceInfo& service, const dmf::Dictionary& error)> serviceInfoDidNotResolve;
};

/// One service of one device: its URI, its device class, what the URI says of the device, and, once resolved, the
/// device object. Thread-safe; events arrive on the run loop in which the service is scheduled.
class DMF_EXPORT ADMServiceInfo : public ADMDeviceInfo, public IDMCoreServiceInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    ~ADMServiceInfo() override;

    /// The service's URI; when it has none, one is generated and kept. Nothing when none can be generated. While there
    /// is none, may block as `vendorName`, `modelName` and `deviceName` do; so may what is made of it: `isEqual`,
    /// `hash`, `hasStandardURI`, `universalURIWithScheme`.
    [[nodiscard]] virtual std::optional<std::string> uri() = 0;
    /// The same service in the universal form with the caller's scheme; nothing where that form does not exist.
    [[nodiscard]] virtual std::optional<std::string> universalURIWithScheme(std::optional<std::string_view> scheme) = 0;
    [[nodiscard]] virtual bool hasStandardURI() = 0;
    [[nodiscard]] virtual std::optional<std::string> deviceClass() const = 0;
    [[nodiscard]] virtual std::optional<std::string> serviceName() const = 0;
    /// 0 not resolved, 1 resolved (or found by a discovery), 2 failed (or lost).
    [[nodiscard]] virtual std::uint32_t serviceState() const = 0;
    /// The device classes that the model database lists for the model. May block as `modelInfo` does.
    [[nodiscard]] virtual std::vector<std::string> supportedDeviceClasses() = 0;

    /// The service as bytes, to be kept; `ADMServiceInfoImp::serviceInfoWithData` reads them. Nothing when empty.
    [[nodiscard]] virtual std::optional<dmf::Data> dataRepresentation() const = 0;
    /// A new service made from this one's bytes: without provider, delegate, resolution, device and run loop.
    [[nodiscard]] virtual std::shared_ptr<ADMServiceInfo> copy() const = 0;
    /// `isEqualToServiceInfo` for objects of one class. All three may block as `uri` of either does.
    [[nodiscard]] virtual bool isEqual(ADMServiceInfo& other) = 0;
    /// Whether URIs, whatever their letter case, and service names are the same.
    [[nodiscard]] virtual bool isEqualToServiceInfo(ADMServiceInfo& other) = 0;
    /// The MD5 fold of URI and device class. It heeds letter case, which equality does not.
    [[nodiscard]] virtual std::uint32_t hash() = 0;

    [[nodiscard]] virtual std::shared_ptr<ADMServiceInfoDelegate> delegate() const = 0;
    virtual void setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate) = 0;
    /// A null run loop stands for the current one, a missing mode for the default mode.
    virtual void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode) = 0;
    virtual void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) = 0;
    /// Starts looking for the device, without blocking; does nothing while a resolution runs. `parameters` names by its
    /// keys what the device is asked for; `timeout` is in seconds and bounds the whole.
    ///
    ///     idle ──start──► announcing ("will resolve") ──► resolving ──outcome──► idle ("did", or "did not resolve")
    ///      ▲                                └──── stop, release of the service ────┘ (without a word)
    ///
    /// A service for which no resolver can be made (no connection type, no class) hears "will" and then "did not
    /// resolve", with the reason, before this operation returns. What the delegate throws is logged and changes
    /// nothing.
    virtual void resolveServiceWithParameters(const dmf::Dictionary& parameters, double timeout) = 0;
    /// The same with the parameters usual for the connection type.
    virtual void resolveWithTimeout(double timeout) = 0;
    /// Ends a resolution without a word to the delegate: no outcome is told once it has returned. Never waits for the
    /// device; while another thread is just telling the delegate, waits for that call, a second at most.
    virtual void stop() = 0;
};
