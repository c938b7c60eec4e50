#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMServiceInfo;
class ADMServiceResolver;
class IDMDevice;

/// Told once that a resolution has ended. Owned by the client; the resolver holds it weakly.
struct ADMServiceResolverDelegate {
    std::function<void(ADMServiceResolver& resolver)> serviceResolverDidFinish;
};

/// Finds the device behind a service and asks it who it is, within a time-out and without blocking the run loop of the
/// client. Thread-safe. A class that implements it has a static `connectionType()`, the type that it resolves, and is
/// made known to the shared factory under it.
class DMF_EXPORT ADMServiceResolver {
public:
    class SharedFactory;

    using Factory = std::shared_ptr<ADMServiceResolver>();
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMServiceResolver();

    /// The process's table of resolver classes.
    [[nodiscard]] static SharedFactory& sharedFactory();

    /// Starts the resolution. It ends with one call of the delegate, on the run loop in one of the modes: as soon as
    /// the device was found, otherwise after `timeout` seconds. With a null run loop or no mode it fails at once, and
    /// the delegate is called before this operation returns. `parameters` names by its keys what the device is asked
    /// for. A later start drops an earlier one, whose end is then told to nobody. Keeps the service.
    virtual void resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout,
                                const dmf::Dictionary& parameters, std::shared_ptr<dmf::RunLoop> runLoop,
                                const std::vector<std::string>& modes) = 0;
    /// Ends the resolution without a call of the delegate. Never waits for the device.
    virtual void stop() = 0;

    /// The failure (kDMErrorCode -1 and kDMErrorDescription); empty after a success.
    [[nodiscard]] virtual dmf::Dictionary lastError() const = 0;
    /// What the device said of itself: vendor, model, device name, parameters.
    [[nodiscard]] virtual dmf::Dictionary resolvedInfo() const = 0;
    [[nodiscard]] virtual std::shared_ptr<IDMDevice> resolvedDevice() const = 0;

    [[nodiscard]] virtual std::shared_ptr<ADMServiceResolverDelegate> delegate() const = 0;
    virtual void setDelegate(const std::shared_ptr<ADMServiceResolverDelegate>& delegate) = 0;
};

/// Which class resolves the services of which connection type. There is one, made on first use; the resolver for every
/// other type is in it from the start. Thread-safe.
class DMF_EXPORT ADMServiceResolver::SharedFactory final {
public:
    SharedFactory(const SharedFactory&) = delete;
    SharedFactory& operator=(const SharedFactory&) = delete;

    /// Registers a class that implements ADMServiceResolver; a later class for a type replaces the earlier one.
    /// Ignores a null class.
    void addResolverClass(std::shared_ptr<const dmf::Class> resolverClass, std::string_view connectionType);
    /// A new resolver of the class for the type, or of ADMGenericServiceResolver where none is registered; empty for a
    /// missing type and when the class makes none.
    [[nodiscard]] std::shared_ptr<ADMServiceResolver>
    newServiceResolverWithConnectionType(std::optional<std::string_view> connectionType) const;

private:
    friend class ADMServiceResolver;
    SharedFactory();
    ~SharedFactory() = default; // lives as long as the process

    mutable std::mutex lock_;
    std::map<std::string, std::shared_ptr<const dmf::Class>, std::less<>> classes_; // guarded by lock_
};
