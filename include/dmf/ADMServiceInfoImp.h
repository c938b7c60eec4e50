#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMServiceResolver.h>
#include <dmf/platform/Export.h>

namespace dmf::internal {
class ServiceDevice;
class ServiceProperties;
class ServiceResolution;
} // namespace dmf::internal

/// The library's service info. Thread-safe. Releasing the last reference ends a resolution, and what it began, as
/// `stop` does.
class DMF_EXPORT ADMServiceInfoImp final : public ADMServiceInfo,
                                           public std::enable_shared_from_this<ADMServiceInfoImp> {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// A service from a URI and a device class (kPrinterDeviceClass, ...). Empty when either is missing, and for a URI
    /// that cannot be read (or whose vendor is not accepted), unless `ioProvider` is given or a mock plug-in is
    /// registered for its scheme. Loads plug-ins where the scheme asks for one.
    [[nodiscard]] static std::shared_ptr<ADMServiceInfoImp> initWithURI(std::optional<std::string_view> uri,
                                                                        std::optional<std::string_view> deviceClass,
                                                                        std::shared_ptr<ADMIOProvider> ioProvider = {});
    [[nodiscard]] static std::shared_ptr<ADMServiceInfoImp>
    serviceInfoWithURI(std::optional<std::string_view> uri, std::optional<std::string_view> deviceClass)
    {
        return initWithURI(uri, deviceClass);
    }
    /// A service from its properties; without a device class it gets that of its service name.
    [[nodiscard]] static std::shared_ptr<ADMServiceInfoImp> initWithSpec(const dmf::Dictionary& spec);
    /// A service from bytes of `dataRepresentation`; empty for missing data. Bytes that are no such representation,
    /// wherever they come from, are safe and give a service without any property.
    [[nodiscard]] static std::shared_ptr<ADMServiceInfoImp> initWithData(const std::optional<dmf::Data>& data);
    [[nodiscard]] static std::shared_ptr<ADMServiceInfoImp> serviceInfoWithData(const std::optional<dmf::Data>& data)
    {
        return initWithData(data);
    }

    explicit ADMServiceInfoImp(Passkey);
    /// One that stands for `original` before resolvers: it shares properties and device, but is scheduled nowhere and
    /// resolves by itself, so that a resolver may keep it without keeping the service that it works for.
    ADMServiceInfoImp(Passkey, const ADMServiceInfoImp& original);
    ~ADMServiceInfoImp() override;
    ADMServiceInfoImp(const ADMServiceInfoImp&) = delete;
    ADMServiceInfoImp& operator=(const ADMServiceInfoImp&) = delete;

    /// The device class of a service such as "Scan"; kPrinterDeviceClass for every other name and for none.
    [[nodiscard]] static std::string_view deviceClassForServiceName(std::optional<std::string_view> serviceName);

    // ADMDeviceInfo
    [[nodiscard]] std::optional<std::string> connectionType() const override;
    [[nodiscard]] dmf::Dictionary connectionParams() const override;
    [[nodiscard]] std::optional<std::string> vendorName() override;
    [[nodiscard]] std::optional<std::string> modelName() override;
    [[nodiscard]] std::optional<std::string> deviceName() override;
    [[nodiscard]] std::shared_ptr<ADMCoreModelInfo> modelInfo() override;
    [[nodiscard]] bool isEqualToDeviceInfo(ADMDeviceInfo& other) override;

    // IDMCoreServiceInfo
    [[nodiscard]] std::shared_ptr<IDMDevice> device() override;
    void setDevice(std::shared_ptr<IDMDevice> device) override;
    [[nodiscard]] std::shared_ptr<IDMDevice>
    locateDeviceWithHandler(std::shared_ptr<IDMDeviceHandler> handler) override;
    [[nodiscard]] bool isReachable() override;
    [[nodiscard]] std::shared_ptr<ADMIOProvider> ioProvider() const override;
    void setVendorName(std::optional<std::string> name) override;
    void setModelName(std::optional<std::string> name) override;
    void setDeviceName(std::optional<std::string> name) override;
    void setConnectionParams(const dmf::Dictionary& parameters) override;
    void setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo) override;
    void setServiceState(std::uint32_t state) override;
    void setResolvedSpec(const dmf::Dictionary& spec) override;

    // ADMServiceInfo
    [[nodiscard]] std::optional<std::string> uri() override;
    [[nodiscard]] std::optional<std::string> universalURIWithScheme(std::optional<std::string_view> scheme) override;
    [[nodiscard]] bool hasStandardURI() override;
    [[nodiscard]] std::optional<std::string> deviceClass() const override;
    [[nodiscard]] std::optional<std::string> serviceName() const override;
    [[nodiscard]] std::uint32_t serviceState() const override;
    [[nodiscard]] std::vector<std::string> supportedDeviceClasses() override;
    [[nodiscard]] std::optional<dmf::Data> dataRepresentation() const override;
    [[nodiscard]] std::shared_ptr<ADMServiceInfo> copy() const override;
    [[nodiscard]] bool isEqual(ADMServiceInfo& other) override;
    [[nodiscard]] bool isEqualToServiceInfo(ADMServiceInfo& other) override;
    [[nodiscard]] std::uint32_t hash() override;
    [[nodiscard]] std::shared_ptr<ADMServiceInfoDelegate> delegate() const override;
    void setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate) override;
    void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop> runLoop, std::optional<std::string_view> mode) override;
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override;
    void resolveServiceWithParameters(const dmf::Dictionary& parameters, double timeout) override;
    void resolveWithTimeout(double timeout) override;
    void stop() override;

    /// All that is known of the service, by the keys of its properties (kURIProp, kVendorNameProp, ...); a copy. Asks
    /// neither the device nor the model database, and never blocks.
    [[nodiscard]] dmf::Dictionary properties() const;
    /// Appends the archive of the properties to `data`; nothing when a property is of a kind that has no archive form.
    void serializeToData(dmf::Data& data) const;
    /// Replaces the properties by those of the archive; what the archive's URI says wins over its other entries. Bytes
    /// that are no archive leave the object unchanged.
    void deserializeFromData(const dmf::Data& data);

    /// Makes the device object for `deviceSpec` by the class that the I/O provider, or failing that the plug-in
    /// manager, supplies; empty when there is no class or it makes none. Blocks for as long as the transport looks for
    /// it.
    [[nodiscard]] std::shared_ptr<IDMDevice>
    locateDeviceWithHandlerDeviceSpec(const std::shared_ptr<IDMDeviceHandler>& handler,
                                      const dmf::Dictionary& deviceSpec);

    /// Takes over the outcome of the resolution under way and tells the delegate; what any other resolver came to is
    /// ignored.
    void serviceResolverDidFinish(ADMServiceResolver& resolver);

private:
    const std::shared_ptr<dmf::internal::ServiceProperties> properties_;
    const std::shared_ptr<dmf::internal::ServiceDevice> device_;
    const std::shared_ptr<dmf::internal::ServiceResolution> resolution_;
};
