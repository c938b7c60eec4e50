#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <dmf/ADMDiscoveryProvider.h>
#include <dmf/IDMLock.h>
#include <dmf/IDMServiceDiscovery.h>
#include <dmf/platform/RunLoop.h>

/// Base of the discovery back ends: a subclass makes a provider, which does the work of its protocol on the discovery
/// thread, hands it over by `setDiscovery`, and reports what the provider finds by `announceService`.
///
/// Objects are owned by std::shared_ptr. The last reference may be released on any thread, the discovery thread
/// included. Thread-safe but for `setDiscovery`.
class DMF_EXPORT ADMServiceDiscoveryBase : public IDMServiceDiscovery,
                                           public std::enable_shared_from_this<ADMServiceDiscoveryBase> {
public:
    ~ADMServiceDiscoveryBase() override;
    ADMServiceDiscoveryBase(const ADMServiceDiscoveryBase&) = delete;
    ADMServiceDiscoveryBase& operator=(const ADMServiceDiscoveryBase&) = delete;

    [[nodiscard]] const std::string& serviceName() const noexcept { return serviceName_; }
    [[nodiscard]] const std::string& connectionType() const noexcept { return connectionType_; }
    [[nodiscard]] const dmf::Dictionary& parameters() const noexcept { return parameters_; }
    [[nodiscard]] dmf::Dictionary resolveParameters() const;
    void setParametersToResolve(dmf::Dictionary parameters) override;

    [[nodiscard]] std::shared_ptr<IDMServiceDiscoveryDelegate> delegate() const override;
    void setDelegate(const std::shared_ptr<IDMServiceDiscoveryDelegate>& delegate) override;

    /// Starts the provider; false, with the provider's status as kDMErrorCode, when it does not start, and with -1 when
    /// there is none.
    [[nodiscard]] bool startServiceDiscovery(dmf::Dictionary* error) override;
    /// Takes the delegate away first, so that nobody hears of a service after having asked to stop; then stops the
    /// provider.
    void stop() override;

    /// Reports a find or a loss to the delegate, on the calling thread, which is to be the discovery thread.
    void announceService(const std::shared_ptr<ADMServiceInfo>& service, bool isRemoved);

    /// The discovery thread of the process. It runs exactly while somebody has retained it; providers do so for their
    /// whole life. False when it cannot be started.
    static bool retainThread();
    /// Releasing the last reference stops the thread and waits for its end; on the thread itself it only asks for it.
    static void releaseThread();
    /// The thread's run loop; empty while there is no thread.
    [[nodiscard]] static std::shared_ptr<dmf::RunLoop> runloop();
    /// The thread's lock, under which its work runs; -1 while there is no thread, and an empty object. `unlock` gives
    /// back what the calling thread took last by `lock`, though the discovery thread may have ended since.
    static std::int32_t lock();
    static std::int32_t unlock();
    [[nodiscard]] static std::shared_ptr<IDMLock> lockObject();
    /// See ADMDiscoveryThread::performAction; empty while there is no thread.
    static std::shared_ptr<IDMLock> performAction(std::function<void()> action);

protected:
    ADMServiceDiscoveryBase(std::string serviceName, std::string connectionType, dmf::Dictionary parameters);
    /// Hands the provider over; once, before the object is handed out.
    void setDiscovery(std::shared_ptr<ADMDiscoveryProvider> discovery) noexcept { discovery_ = std::move(discovery); }
    [[nodiscard]] const std::shared_ptr<ADMDiscoveryProvider>& discovery() const noexcept { return discovery_; }

private:
    mutable std::recursive_mutex lock_;
    std::weak_ptr<IDMServiceDiscoveryDelegate> delegate_; // guarded by lock_
    std::shared_ptr<ADMDiscoveryProvider> discovery_;
    const std::string serviceName_;
    const std::string connectionType_;
    dmf::Dictionary resolveParameters_; // guarded by lock_
    const dmf::Dictionary parameters_;
};
