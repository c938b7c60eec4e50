#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include <dmf/ADMInterface.h>

/// Base of the functional services that plug-ins supply: a service is bound to one service info and keeps its
/// parameters and its last error. Its class states ADMInterfaceInitialization:
///
///     described.implements<ADMInterfaceInitialization>([](std::shared_ptr<ADMServiceInfo> serviceInfo) {
///         return ADMFunctionalServiceImp::initWithServiceInfo<StatusService>(std::move(serviceInfo));
///     });
///
/// Thread-safe.
class DMF_EXPORT ADMFunctionalServiceImp : public ADMInterface,
                                           public std::enable_shared_from_this<ADMFunctionalServiceImp> {
public:
    /// What a service starts from. Only `initWithServiceInfo` makes one, so there is none without a service info.
    class Initializer {
        friend class ADMFunctionalServiceImp;
        explicit Initializer(std::shared_ptr<ADMServiceInfo> serviceInfo) : serviceInfo_(std::move(serviceInfo)) {}
        std::shared_ptr<ADMServiceInfo> serviceInfo_;
    };
    /// A service of the class `Service`, whose constructor gets an Initializer and the further arguments; empty without
    /// a service info.
    template <class Service = ADMFunctionalServiceImp, class... Arguments>
    [[nodiscard]] static std::shared_ptr<Service> initWithServiceInfo(std::shared_ptr<ADMServiceInfo> serviceInfo,
                                                                      Arguments&&... arguments)
    {
        if (!serviceInfo)
            return nullptr;
        return std::make_shared<Service>(Initializer(std::move(serviceInfo)), std::forward<Arguments>(arguments)...);
    }
    explicit ADMFunctionalServiceImp(Initializer&& initializer);
    ~ADMFunctionalServiceImp() override;
    ADMFunctionalServiceImp(const ADMFunctionalServiceImp&) = delete;
    ADMFunctionalServiceImp& operator=(const ADMFunctionalServiceImp&) = delete;

    [[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceInfo() const override { return serviceInfo_; }
    /// Whether the service info's state is 1.
    [[nodiscard]] bool isAvailable() const override;
    /// What the client has set; kDMParameterPollingIntervalKey and kDMParameterOperationTimeoutKey are for the concrete
    /// service to heed.
    [[nodiscard]] dmf::Dictionary parameters() const override;
    void setParameters(dmf::Dictionary parameters) override;
    [[nodiscard]] dmf::Dictionary lastError() const override;
    void setLastError(dmf::Dictionary error);

protected:
    /// The service's own lock, which guards all that its bases keep.
    [[nodiscard]] std::recursive_mutex& lock() const noexcept { return lock_; }

private:
    const std::shared_ptr<ADMServiceInfo> serviceInfo_;
    mutable std::recursive_mutex lock_;
    dmf::Dictionary parameters_; // guarded by lock_
    dmf::Dictionary lastError_;  // guarded by lock_
};
